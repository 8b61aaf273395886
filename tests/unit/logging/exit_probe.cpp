#include "logging/log.hpp"

namespace {

struct LateSpeaker {
    ~LateSpeaker() { ORU_LOG(Warning, "from a static destructor"); }
};

const LateSpeaker lateSpeaker;

}  // namespace

int main() {
    ORU_LOG(Info, "from main");
}
