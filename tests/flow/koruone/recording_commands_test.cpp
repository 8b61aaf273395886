#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "flow/koruone/tool.hpp"

namespace oru {
namespace {

TEST(KoruoneRecord, FilePlaysWhereTheCameraWasNeverSeen) {
    Tool tool;
    const std::string path = recordShort(tool, "lossless");
    Tool elsewhere;
    elsewhere.environment["KORU_VIRTUAL_BUS"] = "off";

    const ToolResult verified = elsewhere.run({"verify", path});
    const uint64_t frames = framesPlayed(elsewhere, path);
    const ToolResult from = elsewhere.run({"play", path, "--from", "1", "--json"});
    const ToolResult beyond = elsewhere.run({"play", path, "--from", "1000"});
    const ToolResult info = elsewhere.run({"info", "--file", path, "--json"});

    EXPECT_EQ(verified.status, 0) << verified.errors;
    EXPECT_GT(frames, 1U);
    EXPECT_EQ(from.json().value("frames", uint64_t{0}), frames - 1);
    EXPECT_EQ(beyond.status, 1);
    EXPECT_NE(beyond.errors.find("no frame 1000"), std::string::npos) << beyond.errors;
    EXPECT_EQ(info.status, 0) << info.errors;
}

TEST(KoruoneRecord, ExistingFileIsKeptUnlessAsked) {
    Tool tool;
    const std::string path = tool.home.path("a.rlx2");
    std::ofstream(path) << "precious";
    const Arguments record{"record", path, "--resolution", "HD600", "--frames", "2"};
    Arguments overwrite = record;
    overwrite.emplace_back("--overwrite");

    const ToolResult kept = tool.run(record);

    EXPECT_EQ(kept.status, 1);
    EXPECT_NE(kept.errors.find("--overwrite"), std::string::npos) << kept.errors;
    EXPECT_EQ(tool.home.read("a.rlx2"), "precious");
    EXPECT_EQ(tool.run(overwrite).status, 0);
    EXPECT_EQ(tool.run({"verify", path}).status, 0);
}

TEST(KoruoneRecord, SaysWhichFilesKeepNoInertialSamples) {
    for (const auto& [name, keeps] : std::map<std::string, bool>{{"a.rlx", false}, {"a.rlx2", true}}) {
        Tool tool;
        const std::string path = tool.home.path(name);

        const ToolResult recorded = tool.run({"record", path, "--resolution", "HD600", "--frames", "5"});
        const ToolResult verified = tool.run({"verify", path});

        EXPECT_EQ(recorded.status, 0);
        EXPECT_EQ(recorded.errors.find(".rlx2") == std::string::npos, keeps) << recorded.errors;
        EXPECT_EQ(verified.output.find(" 0 inertial samples") == std::string::npos, keeps) << verified.output;
    }
}

TEST(KoruoneRepair, CutFileComesBackAndTheExitStatusTellsTheLoss) {
    Tool tool;
    const std::string path = recordShort(tool, "h264");
    const std::string copy = tool.home.path("copy.rlx2");
    const uint64_t frames = framesPlayed(tool, path);
    std::filesystem::copy_file(path, copy);

    shorten(path, 10);
    const uint64_t size = std::filesystem::file_size(path);
    EXPECT_EQ(framesPlayed(tool, path), frames) << "only the index is missing";
    const ToolResult followed = tool.run({"convert", path, tool.home.path("b.rlx2"), "--follow"});
    EXPECT_EQ(followed.status, 0) << followed.errors;
    EXPECT_EQ(framesPlayed(tool, tool.home.path("b.rlx2")), frames);
    EXPECT_EQ(std::filesystem::file_size(path), size) << "playing and converting only read";
    const int cutIndex = tool.run({"verify", path}).status;
    const ToolResult whole = tool.run({"repair", path});
    shorten(copy, std::filesystem::file_size(copy) / 3);
    const ToolResult lossy = tool.run({"repair", copy, "--output", tool.home.path("fixed.rlx2")});

    EXPECT_EQ(cutIndex, 3);
    EXPECT_EQ(whole.status, 0) << whole.output << whole.errors;
    EXPECT_EQ(framesPlayed(tool, path), frames);
    EXPECT_EQ(lossy.status, 3) << lossy.output << lossy.errors;
    EXPECT_EQ(tool.run({"verify", tool.home.path("fixed.rlx2")}).status, 0);
    EXPECT_EQ(tool.run({"verify", copy}).status, 3) << "the input of --output stays as it is";
}

TEST(KoruoneRepair, SaysWhichKindOfFileCannotBeHelped) {
    Tool tool;
    std::ofstream(tool.home.path("empty"));
    std::ofstream(tool.home.path("text")) << "no recording at all";
    const struct {
        std::string path;
        const char* reason;
    } cases[] = {{tool.home.path("missing"), "does not exist"},
                 {tool.home.path("empty"), "is empty"},
                 {tool.home.path("text"), "is not an RLX recording"},
                 {tool.home.path(""), "is not a file"}};
    for (const auto& sample : cases) {
        for (const char* command : {"verify", "repair"}) {
            const ToolResult result = tool.run({command, sample.path});
            EXPECT_EQ(result.status, 1) << command << ' ' << sample.path;
            EXPECT_NE(result.errors.find(sample.reason), std::string::npos) << result.errors;
        }
    }
}

TEST(KoruonePlay, ShowsPicturesInATerminal) {
    Tool tool;
    const std::string path = recordShort(tool, "raw");
    tool.terminalColumns = 60;
    tool.allOnTerminal = true;

    const ToolResult played = tool.run({"play", path, "-q"});

    EXPECT_EQ(played.status, 0) << played.errors;
    EXPECT_NE(played.errors.find("\x1b[38;2;"), std::string::npos);
    EXPECT_NE(played.errors.find("\xE2\x96\x80"), std::string::npos);
    EXPECT_NE(played.errors.find("frame 1 of "), std::string::npos);
    EXPECT_NE(played.errors.find("\x1b[?1049l"), std::string::npos) << "the screen was not given back";
    EXPECT_NE(played.errors.find(" shown, "), std::string::npos) << played.errors;
}

TEST(KoruonePlay, OpensTheExplorerWhereItIsInstalled) {
    Tool tool;
    const std::string path = recordShort(tool, "raw");
    const std::string folder = tool.home.path("programs");
    std::filesystem::create_directory(folder);
    const std::string stand = tool.home.write("programs/koru-explorer", "#!/bin/sh\necho \"explores $1\"\n");
    std::filesystem::permissions(stand, std::filesystem::perms::owner_all);

    const ToolResult without = tool.run({"play", path});
    tool.environment["PATH"] = folder + ":/usr/bin:/bin";
    const ToolResult with = tool.run({"play", path});
    const ToolResult measured = tool.run({"play", path, "--no-display"});

    EXPECT_NE(without.errors.find("no terminal"), std::string::npos) << without.errors;
    EXPECT_NE(without.output.find("frames/s"), std::string::npos) << without.output;
    EXPECT_EQ(with.output, "explores " + path + "\n");
    EXPECT_EQ(with.status, 0);
    EXPECT_EQ(measured.errors.find("no terminal"), std::string::npos) << measured.errors;
    EXPECT_NE(measured.output.find("frames/s"), std::string::npos) << measured.output;
}

}  // namespace
}  // namespace oru
