#include "tables/tables.hpp"

namespace oru {

// Priority 101, the first one that a program may use: a camera of static lifetime may be opened by an initialiser.

[[gnu::init_priority(101)]] const std::vector<int32_t> gmsl_i2c_bus_index = {
    30, 31, 32, 33, 34, 35, 36, 37, 9, 10, 11, 12, 13, 14, 15, 16, 0, 1, 2, 3, 4, 5, 6, 7, 8};
[[gnu::init_priority(101)]] const std::vector<uint32_t> eeprom_adress_list = {0x55, 0x57};

[[gnu::init_priority(101)]] const std::map<RESOLUTION, Resolution> cameraResolution = {
    {HD2160, {3840, 2160}}, {HD1800, {3200, 1800}}, {HD1242, {2208, 1242}}, {HD1080, {1920, 1080}},
    {HD1200, {1920, 1200}}, {HD720, {1280, 720}},   {HD600, {960, 600}},    {HD376, {672, 376}},
};

[[gnu::init_priority(101)]] const std::string _Unknown_ = "Unknown";
[[gnu::init_priority(101)]] const std::string _Unknown_error_ = "Unknown error";

[[gnu::init_priority(101)]] const std::string _dir_settings = "settings";
[[gnu::init_priority(101)]] const std::string _dir_resources = "resources";
[[gnu::init_priority(101)]] const std::string _dir_asset = "assets";
[[gnu::init_priority(101)]] const std::string _dir_firmware = "firmware";
[[gnu::init_priority(101)]] const std::string _dir_log_sub = "koru";
[[gnu::init_priority(101)]] const std::string _dir_log_sub_2 = "log";

RESOLUTION resolutionOf(const Resolution& size) {
    for (const auto& [name, listed] : cameraResolution) {
        if (listed == size) {
            return name;
        }
    }
    return RESOLUTION_LAST;
}

}  // namespace oru
