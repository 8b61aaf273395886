#include "backends/stream/HostileSocket.hpp"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace oru::test {
namespace {

// draft-sharabayko-srt, sections 3.2 and 4.3.
constexpr uint32_t kControlBit = 0x80000000;
constexpr std::size_t kHeaderWords = 4;
constexpr std::size_t kHandshakeWords = 12;
constexpr std::size_t kKindAt = kHeaderWords + 5;
constexpr std::size_t kCookieAt = kHeaderWords + 7;
constexpr uint32_t kOldVersion = 4;
constexpr uint32_t kVersion = 5;
constexpr uint32_t kDatagramType = 2;
constexpr uint32_t kExtensionRequest = 1;
constexpr int32_t kInduction = 1;
constexpr int32_t kConclusion = -1;
constexpr uint32_t kMessageSize = 1500;
constexpr uint32_t kWindow = 8192;

}  // namespace

HostileSocket::HostileSocket(uint16_t port, uint64_t seed)
    : random(seed), handle(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    (void)connect(handle, reinterpret_cast<const sockaddr*>(&target), sizeof(target));
    ownId = any() >> 2 | 1;
    ownSequence = any() >> 1;
}

HostileSocket::~HostileSocket() {
    close(handle);
}

void HostileSocket::sendWords(const std::vector<uint32_t>& words) {
    std::vector<uint32_t> network(words.size());
    std::transform(words.begin(), words.end(), network.begin(), [](uint32_t word) { return htonl(word); });
    (void)send(handle, network.data(), 4 * network.size(), 0);
}

std::vector<uint32_t> HostileSocket::handshake(uint32_t version, uint32_t extension, int32_t kind, uint32_t cookie) {
    const uint32_t address = ntohl(target.sin_addr.s_addr);
    return {kControlBit,
            0,
            0,
            0,
            version,
            extension,
            ownSequence,
            kMessageSize,
            kWindow,
            static_cast<uint32_t>(kind),
            ownId,
            cookie,
            htonl(address),
            0,
            0,
            0};
}

void HostileSocket::sendRandom() {
    std::vector<uint32_t> words(any() % 370);
    std::generate(words.begin(), words.end(), [this] { return any(); });
    const uint32_t choice = any() % 4;
    if (choice == 1 && words.size() > kHeaderWords) {
        // A control packet of any kind, for the listener or for some connection.
        words[0] = kControlBit | (any() % 10) << 16 | any() % 8;
        words[3] = any() % 2 == 0 ? 0 : any();
    } else if (choice == 2) {
        const int32_t kinds[] = {kInduction, kConclusion, 0, -2, static_cast<int32_t>(any())};
        const std::vector<uint32_t> fields =
            handshake(any() % 2 == 0 ? kVersion : any(), any(), kinds[any() % 5], any());
        words.resize(any() % 2 == 0 ? fields.size() : std::max(words.size(), fields.size()));
        std::copy(fields.begin(), fields.end(), words.begin());
    } else if (choice == 3 && words.size() > kHeaderWords) {
        words[0] &= ~kControlBit;
    }
    sendWords(words);
}

std::vector<uint32_t> HostileSocket::receiveWords(int milliseconds) {
    pollfd waiting{handle, POLLIN, 0};
    std::vector<uint32_t> words(375);
    if (poll(&waiting, 1, milliseconds) != 1) {
        return {};
    }
    const ssize_t size = recv(handle, words.data(), 4 * words.size(), 0);
    words.resize(size < 0 ? 0 : static_cast<std::size_t>(size) / 4);
    std::transform(words.begin(), words.end(), words.begin(), [](uint32_t word) { return ntohl(word); });
    return words;
}

bool HostileSocket::openHalf(bool withAnswer) {
    constexpr uint32_t kHello = 1U << 16 | 3;  // extension block: request, three words
    constexpr uint32_t kLibraryVersion = 0x010500;
    constexpr uint32_t kFlags = 0xBF;
    sendWords(handshake(kOldVersion, kDatagramType, kInduction, 0));
    const std::vector<uint32_t> answer = receiveWords(500);
    if (!withAnswer || answer.size() < kHeaderWords + kHandshakeWords) {
        return !withAnswer;
    }
    std::vector<uint32_t> last = handshake(kVersion, kExtensionRequest, kConclusion, answer[kCookieAt]);
    last.insert(last.end(), {kHello, kLibraryVersion, kFlags, 120U << 16 | 120});
    sendWords(last);
    return !receiveWords(500).empty();
}

bool HostileSocket::openOld() {
    sendWords(handshake(kOldVersion, kDatagramType, kInduction, 0));
    const std::vector<uint32_t> answer = receiveWords(500);
    if (answer.size() < kHeaderWords + kHandshakeWords) {
        return false;
    }
    sendWords(handshake(kOldVersion, kDatagramType, kConclusion, answer[kCookieAt]));
    const std::vector<uint32_t> last = receiveWords(500);
    return last.size() >= kHeaderWords + kHandshakeWords && last[kKindAt] == static_cast<uint32_t>(kConclusion);
}

}  // namespace oru::test
