#include "backends/stream/wire/TsWriter.hpp"

#include <bitstream/mpeg/ts.h>

#include <array>

namespace oru::stream {
namespace {

constexpr uint64_t kTableTicks = 90'000 / 5;
constexpr std::size_t kUsualBlockBytes = std::size_t{1} << 18;

/// Access unit delimiters (ITU-T H.264, 7.3.2.4; ITU-T H.265, 7.3.2.5): a transport stream wants one in each access
/// unit.
constexpr std::array<uint8_t, 6> kH264Delimiter = {0, 0, 0, 1, 0x09, 0xF0};
constexpr std::array<uint8_t, 7> kH265Delimiter = {0, 0, 0, 1, 0x46, 0x01, 0x50};

/// The first byte of the first unit behind its start code; 0 when there is none.
uint8_t firstUnitHeader(std::span<const uint8_t> accessUnit) {
    std::size_t zeros = 0;
    while (zeros < accessUnit.size() && accessUnit[zeros] == 0) {
        ++zeros;
    }
    const bool startCode = zeros >= 2 && zeros + 1 < accessUnit.size() && accessUnit[zeros] == 1;
    return startCode ? accessUnit[zeros + 1] : uint8_t{0};
}

std::span<const uint8_t> missingDelimiter(VideoCodec codec, std::span<const uint8_t> accessUnit) {
    constexpr uint8_t kH264DelimiterType = 9;
    constexpr uint8_t kH265DelimiterType = 35;
    const uint8_t header = firstUnitHeader(accessUnit);
    if (codec == VideoCodec::H265) {
        return (header >> 1 & 0x3F) == kH265DelimiterType ? std::span<const uint8_t>() : kH265Delimiter;
    }
    return (header & 0x1F) == kH264DelimiterType ? std::span<const uint8_t>() : kH264Delimiter;
}

}  // namespace

void TsWriter::open(VideoCodec videoCodec) {
    codec = videoCodec;
    association = programAssociation();
    map = programMap(codec);
    bytes.reserve(kUsualBlockBytes);
    bytes.clear();
    tables = 0;
    tablesWritten.reset();
    tableCounter = videoCounter = dataCounter = blockDataCounter = 0;
}

void TsWriter::begin(uint64_t ticks, bool tablesWanted) {
    bytes.clear();
    now = ticks;
    blockDataCounter = dataCounter;
    if (tablesWanted || !tablesWritten || now - *tablesWritten >= kTableTicks) {
        writeTables();
    }
    tables = bytes.size();
}

void TsWriter::writeTables() {
    for (TransportPacket* table : {&association, &map}) {
        ts_set_cc(table->data(), tableCounter);
        bytes.insert(bytes.end(), table->begin(), table->end());
    }
    tableCounter = (tableCounter + 1) & 0x0F;
    tablesWritten = now;
}

void TsWriter::writeVideo(std::span<const uint8_t> accessUnit, bool keyFrame) {
    PesUnit unit;
    unit.track = PesUnit::Track::VIDEO;
    unit.prefix = missingDelimiter(codec, accessUnit);
    unit.payload = accessUnit;
    unit.pts = now;
    unit.random_access = keyFrame;
    videoCounter = appendPes(bytes, unit, videoCounter);
}

void TsWriter::writeData(std::span<const uint8_t> payload) {
    PesUnit unit;
    unit.payload = payload;
    unit.pts = now;
    dataCounter = appendPes(bytes, unit, dataCounter);
}

}  // namespace oru::stream
