// SPDX-License-Identifier: Apache-2.0
// Tests that no file, whatever it is and holds, does more to a command than fail it with one line.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/tools/hostile_text.h"
#include "tests/tools/update/firmware_bench.h"

namespace {

using tool::Json;
using tool_test::card_package;
using tool_test::contains;
using tool_test::expect_harmless;
using tool_test::file_of;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::run_tool_for;
using Words = std::vector<std::string>;
namespace fs = std::filesystem;

constexpr unsigned kLongestSeconds = 60;
constexpr size_t kLongestLine = 1500;

/// A package's description with which nothing is wrong.
Json description() {
    return parse_json(R"({
        "PackageHeaderInformation": {"PackageHeaderIdentifier": "F018878CCB7D49439800A02F059ACA02",
            "PackageHeaderFormatVersion": 1, "PackageReleaseDateTime": "17/03/2024 10:20:30",
            "PackageVersionString": "VERSION"},
        "FirmwareDeviceIdentificationArea": [{"DeviceUpdateOptionFlags": [],
            "ComponentImageSetVersionString": "set", "ApplicableComponents": [0],
            "Descriptors": [{"DescriptorType": 0, "DescriptorData": "B315"}]}],
        "ComponentImageInformationArea": [{"ComponentClassification": 10, "ComponentIdentifier": 4711,
            "ComponentOptions": [], "RequestedComponentActivationMethod": [5],
            "ComponentVersionString": "1.0"}]})");
}

class HostileFiles : public ::testing::Test {
protected:
    HostileFiles() {
        std::string name = ::testing::TempDir() + "sideband-hostile-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        folder_ = name;
        write("image", std::string(100, 'i'));
        write("good.json", description().dump());
        fs::create_directory(path("folder"));
        EXPECT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
        fs::create_symlink("loop", path("loop"));
        fs::create_symlink("/dev/zero", path("zero"));
        fs::create_symlink("/dev/full", path("full"));
    }
    ~HostileFiles() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    std::string path(const std::string& name) const { return folder_ / name; }

    void write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
    }

    Words create_from(const std::string& metadata) const {
        return {"pkg",          "create",  path("out"),  "--metadata",
                path(metadata), "--image", path("image")};
    }

    /// Every command that takes a file, with this one.
    std::vector<Words> commands_with(const std::string& name) const {
        return {
            {"pkg", "show", path(name)},
            create_from(name),
            {"pkg", "create", path("out"), "--metadata", path("good.json"), "--image", path(name)},
            {"pldm", "fw-update", "nic0", path(name)},
            {"nvme", "fw-download", "nvme0", path(name)},
            {"batch", path(name)},
            {"scan", "--board", path(name)}};
    }

    /// One line that is no longer than a screen has, nothing on standard output, no new file.
    void expect_refused(const Words& words, int status) const {
        SCOPED_TRACE(Json(words).dump());
        const Outcome run = run_tool_for(words, kLongestSeconds);
        EXPECT_EQ(run.status, status) << run.err;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
        EXPECT_LT(run.err.size(), kLongestLine);
        EXPECT_FALSE(fs::exists(path("out")));
        expect_harmless(run);
    }

private:
    fs::path folder_;
};

TEST_F(HostileFiles, WhatIsNoRegularFileIsReadByNobody) {
    for (const char* name : {"fifo", "folder", "loop", "zero"}) {
        for (const Words& words : commands_with(name)) {
            expect_refused(words, 3);
        }
    }
}

TEST_F(HostileFiles, WhatHasNoEndIsNotReadToIt) {
    write("tera", "");
    fs::resize_file(path("tera"), uint64_t{1} << 40);
    for (const Words& words : commands_with("tera")) {
        expect_refused(words, 3);
    }
    const Outcome drive =
        run_tool_for({"nvme", "fw-download", "nvme0", path("tera")}, kLongestSeconds);
    EXPECT_TRUE(
        contains(drive.err, "has 1099511627776 bytes, a drive is told of at most 4294967295"))
        << drive.err;
}

TEST_F(HostileFiles, WhatIsNoRegularFileIsNotReplacedByAPackage) {
    for (const char* name : {"fifo", "folder", "loop", "zero", "full"}) {
        const fs::file_type before = fs::symlink_status(path(name)).type();
        expect_refused({"pkg", "create", path(name), "--metadata", path("good.json"), "--image",
                        path("image")},
                       1);
        EXPECT_EQ(fs::symlink_status(path(name)).type(), before) << name;
    }
    write("old", "something else");
    fs::create_symlink("old", path("link"));
    for (const char* name : {"old", "link"}) {
        const Outcome made = run_tool_for({"pkg", "create", path(name), "--metadata",
                                           path("good.json"), "--image", path("image")},
                                          kLongestSeconds);
        EXPECT_EQ(made.status, 0) << made.err;
    }
}

TEST_F(HostileFiles, PlacesThatTakeNothingFailTheCommand) {
    for (const char* name : {"fifo", "folder", "loop", "full", "none/where"}) {
        expect_refused({"scan", "--capture", path(name)}, 1);
        SCOPED_TRACE(name);
        const Outcome report = run_tool_for(
            {"check", "gpu0", "--rule", "mctp.types", "--junit", path(name)}, kLongestSeconds);
        EXPECT_EQ(report.status, 1);
        EXPECT_EQ(report.err,
                  "sideband-sim: check: " + path(name) + ": the report cannot be written\n");
    }
}

TEST_F(HostileFiles, DescriptionsAndBoardsThatGoTooFarAreRefused) {
    std::string deep;
    for (int i = 0; i < 50'000; ++i) {
        deep += "{\"a\":[";
    }
    const std::string good = description().dump();
    const auto with = [&good](const std::string& old, const std::string& other) {
        std::string text = good;
        return text.replace(text.find(old), old.size(), other);
    };
    const std::string long_text(500'000, 'x');
    const std::pair<const char*, std::string> cases[] = {
        {"empty", ""},
        {"blank", " \n\t"},
        {"deep", deep},
        {"lists", std::string(100'000, '[')},
        {"digits", with("4711", std::string(100'000, '9'))},
        {"negative", with("4711", "-9223372036854775809")},
        {"exponent", with("4711", "1e99999")},
        {"text", with("VERSION", long_text)},
        {"key", "{\"" + long_text + "\": 1}"},
        {"half", good.substr(0, good.size() / 2)},
        {"behind", good + good},
        {"nul", with("VERSION", std::string("a\0b", 3))},
        {"escaped nul", with("VERSION", "a\\u0000b")},
        {"bytes", with("VERSION", "\xff\xfe\xc0\x80")},
        {"surrogate", with("VERSION", "\\ud800")},
        {"control", with("VERSION", "\x1b[2J")},
        {"name", "{\"a\\u001b[2J\\u202e\": 1}"},
    };
    for (const auto& [name, content] : cases) {
        write(name, content);
        expect_refused(create_from(name), 3);
        if (contains(content, "VersionString")) {
            continue;
        }
        SCOPED_TRACE(name);
        const Outcome board = run_tool_for({"board", "check", path(name)}, kLongestSeconds);
        EXPECT_EQ(board.status, 3) << board.err;
        EXPECT_LT(board.err.size(), 6 * kLongestLine);
        expect_harmless(board);
    }
}

TEST_F(HostileFiles, ADescriptionThatIsCutAnywhereMakesNoPackage) {
    const std::string good = description().dump();
    constexpr size_t kStep = 97;
    for (size_t size = 0; size < good.size(); size += kStep) {
        write("cut", good.substr(0, size));
        expect_refused(create_from("cut"), 3);
    }
}

TEST_F(HostileFiles, APackageThatIsCutAnywhereIsRefused) {
    const std::string whole = file_of(card_package(64));
    const size_t header = whole.size() - 64;
    constexpr size_t kStep = 19;
    for (size_t size = 0; size < header; size += kStep) {
        write("cut", whole.substr(0, size));
        expect_refused({"pkg", "show", path("cut")}, 3);
        expect_refused({"pldm", "fw-update", "nic0", path("cut")}, 3);
    }
}

TEST_F(HostileFiles, AFaultOfTheCommandLineIsReadAsStrictly) {
    std::string deep = "nic0={\"kind\":";
    for (int i = 0; i < 10'000; ++i) {
        deep += "{\"a\":[";
    }
    for (const std::string& fault : {deep, "nic0={" + std::string(90'000, ' '),
                                     std::string("nic0={\"kind\": \"\\u001b[2J\\ud800\"}"),
                                     std::string("nic0={\"kind\": \"late\", \"delay_us\": 1e999}"),
                                     std::string("nic0=\x1b[2J\u202e")}) {
        expect_refused({"scan", "--fault", fault}, 2);
    }
}

}  // namespace
