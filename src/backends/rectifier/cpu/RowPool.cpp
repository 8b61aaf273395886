#include "backends/rectifier/cpu/RowPool.hpp"

#include <algorithm>

namespace oru::rectifier {

RowPool::RowPool(int count) {
    for (int thread = 1; thread <= count; ++thread) {
        workers.emplace_back([this, thread] { serve(thread); });
    }
}

RowPool::~RowPool() {
    stopping.store(true, std::memory_order_release);
    round.fetch_add(1, std::memory_order_release);
    round.notify_all();
    for (std::thread& worker : workers) {
        worker.join();
    }
}

void RowPool::runJob(const Job& next, bool alone) {
    job = next;
    nextRow.store(0, std::memory_order_relaxed);
    if (alone || workers.empty() || next.rows <= next.block_rows) {
        takeBlocks(0);
        return;
    }
    working.store(static_cast<int>(workers.size()), std::memory_order_relaxed);
    round.fetch_add(1, std::memory_order_release);
    round.notify_all();
    takeBlocks(0);
    for (int left = working.load(std::memory_order_acquire); left != 0;
         left = working.load(std::memory_order_acquire)) {
        working.wait(left, std::memory_order_acquire);
    }
}

void RowPool::takeBlocks(int thread) {
    for (int first = nextRow.fetch_add(job.block_rows, std::memory_order_relaxed); first < job.rows;
         first = nextRow.fetch_add(job.block_rows, std::memory_order_relaxed)) {
        job.call(job.function, first, std::min(first + job.block_rows, job.rows), thread);
    }
}

void RowPool::serve(int thread) {
    std::uint32_t seen = 0;
    for (;;) {
        round.wait(seen, std::memory_order_acquire);
        seen = round.load(std::memory_order_acquire);
        if (stopping.load(std::memory_order_acquire)) {
            return;
        }
        takeBlocks(thread);
        if (working.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            working.notify_one();
        }
    }
}

}  // namespace oru::rectifier
