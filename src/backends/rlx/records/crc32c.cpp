#include "backends/rlx/records/crc32c.hpp"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#elif defined(__aarch64__)
#include <arm_acle.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace oru::rlx {

namespace {

constexpr uint32_t kPolynomial = 0x82F63B78U;

constexpr std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value >> 1) ^ ((value & 1U) != 0 ? kPolynomial : 0U);
        }
        table[byte] = value;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kTable = makeTable();

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) uint32_t crcByInstruction(const uint8_t* data, std::size_t size, uint32_t crc) {
    uint64_t state = crc;
    for (; size >= 8; size -= 8, data += 8) {
        uint64_t word = 0;
        std::memcpy(&word, data, 8);
        state = _mm_crc32_u64(state, word);
    }
    auto narrow = static_cast<uint32_t>(state);
    for (; size > 0; --size, ++data) {
        narrow = _mm_crc32_u8(narrow, *data);
    }
    return narrow;
}

bool hasInstruction() {
    return __builtin_cpu_supports("sse4.2") != 0;
}
#elif defined(__aarch64__)
__attribute__((target("+crc"))) uint32_t crcByInstruction(const uint8_t* data, std::size_t size, uint32_t crc) {
    for (; size >= 8; size -= 8, data += 8) {
        uint64_t word = 0;
        std::memcpy(&word, data, 8);
        crc = __builtin_aarch64_crc32cx(crc, word);
    }
    for (; size > 0; --size, ++data) {
        crc = __builtin_aarch64_crc32cb(crc, *data);
    }
    return crc;
}

bool hasInstruction() {
    return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
}
#else
uint32_t crcByInstruction(const uint8_t*, std::size_t, uint32_t crc) {
    return crc;
}
bool hasInstruction() {
    return false;
}
#endif

}  // namespace

uint32_t crc32cByTable(const void* data, std::size_t size, uint32_t crc) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i) {
        crc = (crc >> 8) ^ kTable[(crc ^ bytes[i]) & 0xFFU];
    }
    return ~crc;
}

uint32_t crc32c(const void* data, std::size_t size, uint32_t crc) {
    static const bool instruction = hasInstruction();
    return instruction ? ~crcByInstruction(static_cast<const uint8_t*>(data), size, ~crc)
                       : crc32cByTable(data, size, crc);
}

}  // namespace oru::rlx
