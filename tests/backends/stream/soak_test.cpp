// Sender and receiver in two processes for a long time: every frame once, nothing wrong, memory flat.
// ORU_SOAK_SECONDS says how long each run takes; 20 seconds without it.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "backends/stream/stream_fixture.hpp"
#include "doubles/ChildProcess.hpp"

namespace oru::test {
namespace {

using doubles::ChildProcess;

constexpr std::size_t kAllowedGrowth = std::size_t{16} << 20;

int soakSeconds() {
    const char* text = std::getenv("ORU_SOAK_SECONDS");
    const int asked = text == nullptr ? 0 : std::atoi(text);
    return asked > 0 ? asked : 20;
}

std::size_t residentBytes(pid_t process) {
    std::ifstream statm("/proc/" + std::to_string(process) + "/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

/// Two network namespaces joined by a cable; gone afterwards.
class Namespaces {
public:
    Namespaces() {
        made = run("ip netns add " + sender) && run("ip netns add " + receiver) &&
               run("ip -n " + sender + " link add oru0 type veth peer name oru1 netns " + receiver) &&
               run("ip -n " + sender + " addr add 10.213.7.1/24 dev oru0") &&
               run("ip -n " + receiver + " addr add 10.213.7.2/24 dev oru1") &&
               run("ip -n " + sender + " link set oru0 up") && run("ip -n " + receiver + " link set oru1 up");
    }
    ~Namespaces() {
        (void)run("ip netns del " + sender);
        (void)run("ip netns del " + receiver);
    }
    Namespaces(const Namespaces&) = delete;
    Namespaces& operator=(const Namespaces&) = delete;

    bool made = false;
    const std::string sender = "oru_sender_" + std::to_string(::getpid());
    const std::string receiver = "oru_receiver_" + std::to_string(::getpid());

private:
    static bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }
};

struct Size {
    uint32_t width;
    uint32_t height;
    int fps;
};

/// What the receiver printed; see stream_peer.
struct Report {
    unsigned long frames = 0, wrong = 0, lost = 0, samples = 0, missing = 0, sampleErrors = 0, tooSlow = 0;
};

class StreamSoak : public testing::TestWithParam<Size> {
protected:
    void run(std::vector<std::string> atSender, std::vector<std::string> atReceiver, const std::string& host) {
        const Size size = GetParam();
        const std::string port = std::to_string(freePort());
        for (const std::string& word :
             {std::string(ORU_STREAM_PEER), std::string("send"), port, std::string("0"), std::to_string(size.width),
              std::to_string(size.height), std::to_string(size.fps)}) {
            atSender.push_back(word);
        }
        for (const std::string& word :
             {std::string(ORU_STREAM_PEER), std::string("receive"), host, port, std::to_string(soakSeconds())}) {
            atReceiver.push_back(word);
        }
        ChildProcess sender(atSender);
        ChildProcess receiver(atReceiver);
        ASSERT_EQ(receiver.line(), "first\n");
        std::this_thread::sleep_for(std::chrono::seconds(soakSeconds()) / 4);
        const std::size_t warmSender = residentBytes(sender.id());
        const std::size_t warmReceiver = residentBytes(receiver.id());
        std::this_thread::sleep_for(std::chrono::seconds(soakSeconds()) / 2);
        const auto growth = [](std::size_t before, pid_t process) {
            const std::size_t now = residentBytes(process);
            return now > before ? now - before : std::size_t{0};
        };
        const std::size_t senderGrowth = growth(warmSender, sender.id());
        const std::size_t receiverGrowth = growth(warmReceiver, receiver.id());
        Report seen;
        std::istringstream(receiver.line()) >> seen.frames >> seen.wrong >> seen.lost >> seen.samples >> seen.missing >>
            seen.sampleErrors >> seen.tooSlow;
        std::printf(
            "%u x %u at %d: %lu frames, %lu wrong, %lu missing (%lu too slow), %lu samples, %lu wrong; "
            "growth sender %zu KiB, receiver %zu KiB\n",
            size.width, size.height, size.fps, seen.frames, seen.wrong, seen.missing, seen.tooSlow, seen.samples,
            seen.sampleErrors, senderGrowth >> 10, receiverGrowth >> 10);
        EXPECT_GT(static_cast<double>(seen.frames), 0.7 * soakSeconds() * size.fps);
        EXPECT_EQ(seen.wrong, 0U);
        EXPECT_EQ(seen.lost, seen.missing) << "a frame that did not come is not counted";
        EXPECT_GT(seen.samples, 4 * (seen.frames - 10));
        if (seen.tooSlow > 0) {
            std::printf("this machine was too slow for a statement about the stream\n");
        } else {
            EXPECT_EQ(seen.missing, 0U);
            EXPECT_EQ(seen.sampleErrors, 0U);
        }
        EXPECT_LT(senderGrowth, kAllowedGrowth);
        EXPECT_LT(receiverGrowth, kAllowedGrowth);
    }
};

TEST_P(StreamSoak, TwoProcessesOnTheLoopback) {
    run({}, {}, "127.0.0.1");
}

TEST_P(StreamSoak, TwoNetworkNamespaces) {
    const Namespaces network;
    if (!network.made) {
        GTEST_SKIP() << "no network namespaces here: they need root and iproute2";
    }
    run({"ip", "netns", "exec", network.sender}, {"ip", "netns", "exec", network.receiver}, "10.213.7.1");
}

INSTANTIATE_TEST_SUITE_P(Sizes, StreamSoak, testing::Values(Size{960, 600, 30}, Size{1920, 1200, 15}),
                         [](const auto& instance) { return "Width" + std::to_string(instance.param.width); });

}  // namespace
}  // namespace oru::test
