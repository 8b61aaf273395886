#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <type_traits>
#include <vector>

namespace oru::rectifier {

/// Persistent threads that share the rows of one image with their caller, block by block. Nothing is allocated per
/// run. Threads: one caller at a time.
class RowPool {
public:
    /// `workers` threads beside the caller; 0 leaves all the work to it.
    explicit RowPool(int workers);
    ~RowPool();
    RowPool(const RowPool&) = delete;
    RowPool& operator=(const RowPool&) = delete;

    /// Threads that take part, the caller included: what `thread` counts in run().
    [[nodiscard]] int threads() const { return static_cast<int>(workers.size()) + 1; }

    /// Calls `work(firstRow, endRow, thread)` for blocks of `blockRows` rows (the last may be smaller) until all of
    /// `rows` are done, and returns then. `work` does not throw. With `alone` the caller does everything itself.
    template <class Work>
    void run(int rows, int blockRows, bool alone, Work&& work) {
        using Function = std::remove_reference_t<Work>;
        runJob({[](void* function, int first, int end, int thread) {
                    (*static_cast<Function*>(function))(first, end, thread);
                },
                &work, rows, blockRows},
               alone);
    }

private:
    struct Job {
        void (*call)(void* function, int firstRow, int endRow, int thread);
        void* function;
        int rows;
        int block_rows;
    };

    void runJob(const Job& next, bool alone);
    void takeBlocks(int thread);
    void serve(int thread);

    Job job{};  // written by the caller while no worker is at it
    std::atomic<int> nextRow{0};
    std::atomic<int> working{0};
    std::atomic<std::uint32_t> round{0};
    std::atomic<bool> stopping{false};
    std::vector<std::thread> workers;
};

}  // namespace oru::rectifier
