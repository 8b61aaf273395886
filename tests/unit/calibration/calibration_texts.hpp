#pragma once

#include <string>

namespace oru {

inline std::string cameraSection(const std::string& name) {
    return "[CAM_" + name + "]\nfx=1066.5\nfy=1066.25\ncx=961.5\ncy=598.75\nk1=0\n";
}

inline const std::string kMisc = "[MISC]\nSensor_ID=1\n";
inline const std::string kLens =
    "[DISTO]\nk1=-0.05\nk2=0.01\np1=0.0001\np2=-0.0002\nk3=0\nk4=0\nk5=0\nk6=0\ns1=0\ns2=0\ns3=0\ns4=0.001\n";
/// Everything a camera of sensor family 1 has.
inline const std::string kWholeCalibration =
    kMisc + cameraSection("fhd") + cameraSection("fhd1200") + cameraSection("svga") + kLens;

}  // namespace oru
