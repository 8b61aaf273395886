#include "backends/rectifier/device/device_work.hpp"

namespace oru::rectifier {

std::unique_ptr<DeviceWork> makeCudaWork() {
    return nullptr;
}

}  // namespace oru::rectifier
