#include "tables/tables.hpp"

#include <gtest/gtest.h>

namespace oru {
namespace {

// As a camera of static lifetime does when it opens: of the program's own objects this is among the first.
const std::size_t kSizesBeforeMain = cameraResolution.size();
const std::size_t kTextBeforeMain = _dir_settings.size() + gmsl_i2c_bus_index.size();

TEST(Tables, AreThereBeforeTheProgramsOwnInitialisers) {
    EXPECT_EQ(kSizesBeforeMain, 8U);
    EXPECT_EQ(kTextBeforeMain, 8U + 25U);
}

TEST(Tables, NameEverySizeBothWays) {
    const struct {
        RESOLUTION name;
        Resolution size;
    } cases[] = {{HD2160, {3840, 2160}}, {HD1800, {3200, 1800}}, {HD1242, {2208, 1242}}, {HD1080, {1920, 1080}},
                 {HD1200, {1920, 1200}}, {HD720, {1280, 720}},   {HD600, {960, 600}},    {HD376, {672, 376}}};
    EXPECT_EQ(cameraResolution.size(), std::size(cases));
    for (const auto& [name, size] : cases) {
        EXPECT_EQ(cameraResolution.at(name), size);
        EXPECT_EQ(resolutionOf(size), name);
    }
    EXPECT_EQ(cameraResolution.count(AUTO), 0U);
    EXPECT_EQ(resolutionOf({1600, 1200}), RESOLUTION_LAST);
    EXPECT_EQ(resolutionOf({}), RESOLUTION_LAST);
}

TEST(Tables, ListTheBusesInTheirOrder) {
    ASSERT_EQ(gmsl_i2c_bus_index.size(), 25U);
    EXPECT_EQ(gmsl_i2c_bus_index.front(), 30);
    EXPECT_EQ(gmsl_i2c_bus_index[8], 9);
    EXPECT_EQ(gmsl_i2c_bus_index[16], 0);
    EXPECT_EQ(gmsl_i2c_bus_index.back(), 8);
    EXPECT_EQ(eeprom_adress_list, (std::vector<uint32_t>{0x55, 0x57}));
}

}  // namespace
}  // namespace oru
