#include <utility>

#include "oru/types.hpp"

namespace oru {

InputType::InputType(InputKind kind, String first, String second, bool set)
    : inputKind(kind), firstText(std::move(first)), secondText(std::move(second)), described(set) {}

void InputType::setFromFile(String path) {
    *this = InputType(KIND_RLX_FILE, std::move(path), {}, true);
}

void InputType::setFromStream(String ip, unsigned short port) {
    *this = InputType(KIND_STREAM, ip.get() + ":" + std::to_string(port), {}, true);
}

void InputType::setFromSerialNumber(unsigned serial) {
    *this = InputType(KIND_GMSL_SERIAL, std::to_string(serial), {}, true);
}

// The kit knows one bus and one type of camera on it, so neither is kept.
void InputType::setFromCameraID(int id, BUS_TYPE /*bus*/, CAMERA_TYPE /*type*/) {
    *this = InputType(KIND_GMSL_ID, std::to_string(id), {}, true);
}

}  // namespace oru
