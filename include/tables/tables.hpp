#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "oru/image.hpp"

namespace oru {

// Fixed tables; read-only. They are there before any initialiser of a program runs, from the archives as well.

extern const std::map<RESOLUTION, Resolution> cameraResolution;
extern const std::vector<int32_t> gmsl_i2c_bus_index;
extern const std::vector<uint32_t> eeprom_adress_list;

extern const std::string _Unknown_;
extern const std::string _Unknown_error_;

extern const std::string _dir_settings;
extern const std::string _dir_resources;
extern const std::string _dir_asset;
extern const std::string _dir_firmware;
extern const std::string _dir_log_sub;
extern const std::string _dir_log_sub_2;

/// The named size of exactly this width and height, else RESOLUTION_LAST.
RESOLUTION resolutionOf(const Resolution& size);

}  // namespace oru
