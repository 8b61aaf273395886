// The road of every byte that a receiver gets: transport packets, records, images ready for the decoder.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "backends/stream/receiver/Reassembler.hpp"

using namespace oru::stream;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    CodedQueue queue;
    ImuStore samples;
    FrameLedger ledger;
    std::atomic<bool> keyFrameWanted{false};
    Reassembler reassembler(queue, samples, ledger, keyFrameWanted, [](DescriptionRecord&&) {});
    constexpr std::size_t kMessage = 7 * TsDemuxer::kPacketBytes;
    for (std::size_t at = 0; at < size; at += kMessage) {
        reassembler.feed(data + at, size - at < kMessage ? size - at : kMessage);
    }
    CodedImage image;
    while (queue.pop(image, 0)) {
        if (image.record.image_bytes + image.padding > image.bytes.size()) {
            std::abort();
        }
    }
    const oru::FrameCounters counters = ledger.counters();
    if (counters.produced != counters.delivered + counters.lost()) {
        std::abort();
    }
    return 0;
}
