#include "calibration/ConfManager.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <clocale>

#include "calibration/numbers.hpp"
#include "doubles/TemporaryDirectory.hpp"

namespace oru {
namespace {

using doubles::TemporaryDirectory;

TEST(ConfManager, FindsSectionsAndKeysInAnyCase) {
    const TemporaryDirectory folder;
    ConfManager conf;

    conf.load(folder.write("a.conf", "\xEF\xBB\xBF[cam_FHD]\nFX = 1066.5\nfy=12.5px\ncx=abc\ncy = -3e2\n[fx]\nfx=7\n"));

    ASSERT_TRUE(conf.is_open);
    const struct {
        const char* key;
        float value;
    } cases[] = {{"CAM_fhd:fx", 1066.5F},
                 {"CAM_FHD:FY", 12.5F},
                 {"CAM_fhd:cx", 0.0F},
                 {"cam_fhd:cy", -300.0F},
                 {"CAM_fhd:between:fx", 1066.5F},
                 {"fx", 7.0F},
                 {"CAM_fhd:no", 9.25F},
                 {"NO:fx", 9.25F},
                 {"CAM_fhd:", 9.25F},
                 {":", 9.25F}};
    for (const auto& [key, value] : cases) {
        EXPECT_EQ(conf.getValue(key, 9.25F), value) << key;
    }
}

TEST(ConfManager, RoundsTheDefaultToSixDecimalsOnlyWhenAFileIsOpen) {
    const TemporaryDirectory folder;
    ConfManager closed;
    ConfManager open;
    open.load(folder.write("a.conf", "[A]\nb=1\n"));

    EXPECT_EQ(closed.getValue("A:c", 0.0000004F), 0.0000004F);
    EXPECT_EQ(open.getValue("A:c", 0.0000004F), 0.0F);
    EXPECT_EQ(open.getValue("A:c", 0.123456789F), 0.123457F);
}

TEST(ConfManager, StaysClosedForWhatIsNoPlainFileOfASoundSize) {
    const TemporaryDirectory folder;
    ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
    folder.write("huge.conf", std::string((std::size_t{1} << 20) + 1, 'x'));

    for (const std::string& path : {folder.path("missing"), folder.prefix(), folder.path("pipe"),
                                    folder.path("huge.conf"), std::string("/dev/zero"), std::string()}) {
        ConfManager conf;
        conf.load(path);
        EXPECT_FALSE(conf.is_open) << path;
        EXPECT_EQ(conf.path, path);
    }
}

TEST(ConfManager, ReopensAfterAFailedCandidate) {
    const TemporaryDirectory folder;
    ConfManager conf;

    conf.load(folder.path("missing"));
    conf.load(folder.write("there", "[A]\nb=2\n"));

    EXPECT_TRUE(conf.is_open);
    EXPECT_EQ(conf.getValue("A:b", 0.0F), 2.0F);
}

TEST(ConfManager, WritesBackOnlyWhenAskedAndOpen) {
    const TemporaryDirectory folder;
    const std::string text = "[A]\nb=2\n";
    const std::string kept = folder.write("kept", text);
    const std::string rewritten = folder.write("rewritten", text);

    { ConfManager().load(kept); }
    {
        ConfManager conf;
        conf.load(rewritten);
        conf.write_back = true;
    }
    {
        ConfManager conf;
        conf.load(folder.path("missing"));
        conf.write_back = true;
    }

    EXPECT_EQ(folder.read("kept"), text);
    EXPECT_EQ(folder.read("rewritten").substr(0, 3), "\xEF\xBB\xBF");
    EXPECT_FALSE(std::filesystem::exists(folder.path("missing")));
    ConfManager again;
    again.load(rewritten);
    EXPECT_EQ(again.getValue("A:b", 0.0F), 2.0F);
}

/// Switches to a locale with a decimal comma for a scope.
class CommaLocale {
public:
    CommaLocale() : former(std::setlocale(LC_ALL, nullptr)) {
        for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE.utf8", "fr_FR.utf8"}) {
            found = found || std::setlocale(LC_ALL, name) != nullptr;
        }
    }
    ~CommaLocale() { std::setlocale(LC_ALL, former.c_str()); }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    [[nodiscard]] bool isFound() const { return found && std::localeconv()->decimal_point == std::string(","); }

private:
    std::string former;
    bool found = false;
};

TEST(ConfManager, ReadsNumbersAlikeInALocaleWithDecimalComma) {
    const CommaLocale locale;
    if (!locale.isFound()) {
        GTEST_SKIP() << "no locale with a decimal comma is installed here";
    }
    const TemporaryDirectory folder;
    ConfManager conf;
    conf.load(folder.write("a.conf", "[A]\nb=12.5\nc=12,5\n"));

    EXPECT_EQ(conf.getValue("A:b", 0.0F), 12.5F);
    EXPECT_EQ(conf.getValue("A:c", 0.0F), 12.0F);
    EXPECT_EQ(conf.getValue("A:missing", 0.25F), 0.25F);
}

TEST(ParseNumber, ReadsTheHeadOfAText) {
    const struct {
        const char* text;
        double value;
    } cases[] = {{"", 0},   {"abc", 0},  {"  2.9", 2.9}, {"12.5px", 12.5}, {"-0.5e-1x", -0.05},
                 {"+3", 3}, {".5", 0.5}, {"1,5", 1},     {"0x10", 16},     {"- 1", 0}};
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(parseNumber(text), value) << text;
    }
}

}  // namespace
}  // namespace oru
