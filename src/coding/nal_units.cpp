#include "coding/nal_units.hpp"

#include <algorithm>

namespace oru::coding {

namespace {

constexpr uint8_t kStartCode[] = {0, 0, 1};

template <class Length>
void putUnit(Bytes& out, ByteView unit) {
    BigEndianWriter writer(out);
    writer.put(static_cast<Length>(unit.size()));
    writer.bytes(unit);
}

/// Takes out the 03 of every 00 00 03.
Bytes withoutEmulationPrevention(ByteView unit) {
    Bytes out;
    for (std::size_t i = 0; i < unit.size(); ++i) {
        const bool inserted = i >= 2 && unit[i] == 3 && unit[i - 1] == 0 && unit[i - 2] == 0;
        if (!inserted) {
            out.push_back(unit[i]);
        }
    }
    return out;
}

}  // namespace

void splitByteStream(ByteView stream, std::vector<ByteView>& units) {
    auto start = std::search(stream.begin(), stream.end(), std::begin(kStartCode), std::end(kStartCode));
    while (start != stream.end()) {
        const auto body = start + std::size(kStartCode);
        const auto next = std::search(body, stream.end(), std::begin(kStartCode), std::end(kStartCode));
        auto end = next;
        while (end != body && *(end - 1) == 0) {
            --end;
        }
        if (end != body) {
            units.emplace_back(body, end);
        }
        start = next;
    }
}

void putLengthPrefixed(ByteView stream, std::vector<ByteView>& scratch, Bytes& out) {
    scratch.clear();
    splitByteStream(stream, scratch);
    for (const ByteView unit : scratch) {
        putUnit<uint32_t>(out, unit);
    }
}

std::optional<Bytes> avcConfiguration(ByteView parameterSets) {
    std::vector<ByteView> units;
    splitByteStream(parameterSets, units);
    const auto ofType = [&](int type) {
        return std::find_if(units.begin(), units.end(), [&](ByteView unit) { return (unit[0] & 0x1F) == type; });
    };
    const auto sps = ofType(7);
    const auto pps = ofType(8);
    if (sps == units.end() || pps == units.end() || sps->size() < 4) {
        return std::nullopt;
    }
    const uint8_t profile = (*sps)[1];
    Bytes out{1, profile, (*sps)[2], (*sps)[3], 0xFF, 0xE1};
    putUnit<uint16_t>(out, *sps);
    out.push_back(1);
    putUnit<uint16_t>(out, *pps);
    if (profile == 100 || profile == 110 || profile == 122 || profile == 144) {
        const Bytes tail{0xFC | 1, 0xF8, 0xF8, 0};
        out.insert(out.end(), tail.begin(), tail.end());
    }
    return out;
}

std::optional<Bytes> hevcConfiguration(ByteView parameterSets) {
    constexpr int kTypes[] = {32, 33, 34};  // video, sequence and image parameter set
    std::vector<ByteView> units;
    splitByteStream(parameterSets, units);
    std::vector<ByteView> sets;
    for (const int type : kTypes) {
        const auto unit = std::find_if(units.begin(), units.end(),
                                       [&](ByteView candidate) { return ((candidate[0] >> 1) & 0x3F) == type; });
        if (unit == units.end()) {
            return std::nullopt;
        }
        sets.push_back(*unit);
    }
    // Two bytes of unit header, one of layer facts, then the twelve bytes of the general profile, tier and level.
    const Bytes sps = withoutEmulationPrevention(sets[1]);
    if (sps.size() < 15) {
        return std::nullopt;
    }
    Bytes out{1};
    out.insert(out.end(), sps.begin() + 3, sps.begin() + 15);
    const auto temporalLayers = static_cast<uint8_t>(((sps[2] >> 1) & 7) + 1);
    const auto nested = static_cast<uint8_t>(sps[2] & 1);
    const Bytes facts{
        0xF0, 0, 0xFC, 0xFC | 1, 0xF8, 0xF8, 0, 0, static_cast<uint8_t>((temporalLayers << 3) | (nested << 2) | 3), 3};
    out.insert(out.end(), facts.begin(), facts.end());
    for (std::size_t i = 0; i < sets.size(); ++i) {
        out.push_back(static_cast<uint8_t>(0x80 | kTypes[i]));
        BigEndianWriter(out).put<uint16_t>(1);
        putUnit<uint16_t>(out, sets[i]);
    }
    return out;
}

}  // namespace oru::coding
