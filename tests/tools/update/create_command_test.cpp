// SPDX-License-Identifier: Apache-2.0
// Tests of pkg create: packages that other tools have made, images of every kind, where it writes.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/tools/tool_runner.h"

namespace {

namespace fs = std::filesystem;
using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::run_tool;
using tool_test::run_tool_for;

const char* const kDescription = R"({
  "PackageHeaderInformation": {
    "PackageHeaderIdentifier": "f018878ccb7d49439800a02f059aca02",
    "PackageHeaderFormatVersion": 1, "PackageReleaseDateTime": "29/02/2024 23:59:58",
    "PackageVersionString": "all 1"},
  "FirmwareDeviceIdentificationArea": [{
    "DeviceUpdateOptionFlags": [0], "ComponentImageSetVersionString": "set 1",
    "ApplicableComponents": [1],
    "Descriptors": [{"DescriptorType": 0, "DescriptorData": "b315"},
                    {"DescriptorType": 65535, "VendorDefinedDescriptorTitleString": "Board",
                     "VendorDefinedDescriptorData": "0102"}]}],
  "ComponentImageInformationArea": [
    {"ComponentClassification": 10, "ComponentIdentifier": 1, "ComponentOptions": [0, 1],
     "RequestedComponentActivationMethod": [0, 5], "ComponentVersionString": "app 1",
     "ComponentComparisonStamp": 258},
    {"ComponentClassification": 11, "ComponentIdentifier": 2, "ComponentOptions": [],
     "RequestedComponentActivationMethod": [], "ComponentVersionString": "b\u00e9ta"}]
})";

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/// A folder for what goes in and what comes out.
class PkgCreate : public testing::Test {
protected:
    PkgCreate() {
        fs::create_directory(folder_);
        write("description", kDescription);
        write("one", "abc");
        write("two", "de");
    }
    ~PkgCreate() override { fs::remove_all(folder_); }

    std::string path(const std::string& name) const { return folder_ + "/" + name; }
    void write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
    }
    Outcome create(const std::vector<std::string>& images) const {
        std::vector<std::string> words{"pkg", "create", path("out"), "--metadata",
                                       path("description")};
        for (const std::string& image : images) {
            words.insert(words.end(), {"--image", path(image)});
        }
        return run_tool_for(words, 60);
    }
    /// Nothing but what was there before may be left behind.
    void expect_refused(const std::vector<std::string>& images, const std::string& why) const {
        write("out", "before");
        expect_error(create(images), 3, "sideband-sim: pkg create: " + why);
        EXPECT_EQ(content_of(path("out")), "before");
        for (const auto& entry : fs::directory_iterator(folder_)) {
            EXPECT_FALSE(contains(entry.path().filename().string(), "out.")) << entry.path();
        }
    }

private:
    std::string folder_ = testing::TempDir() + "sideband-create-" + std::to_string(getpid());
};

TEST_F(PkgCreate, MakesWhatTheDescriptionSays) {
    const Outcome made = create({"one", "two"});
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(made.out, path("out") + ": 143 bytes in 2 components\n");
    const std::string bytes = content_of(path("out"));
    EXPECT_EQ(bytes.size(), 143U);
    EXPECT_EQ(bytes.substr(138), "abcde") << "the images, in their order";
    // 29 February 2024, 23:59:58 (DSP0240, timestamp104).
    EXPECT_EQ(bytes.substr(19, 13), std::string("\0\0\0\0\0\x3a\x3b\x17\x1d\x02\xe8\x07\0", 13));
    const Outcome shown = run_tool({"pkg", "show", path("out"), "--json"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    const Json package = one_document(shown.out);
    EXPECT_EQ(package.at("version"), "all 1");
    const Json& record = package.at("records")[0];
    EXPECT_EQ(record.at("applicable_components"), "0x00000002");
    EXPECT_EQ(record.at("descriptors")[0].at("value"), "0x15b3");
    EXPECT_EQ(record.at("descriptors")[1].at("data"), "0105426f6172640102");
    EXPECT_EQ(package.at("components").dump(),
              R"([{"classification":10,"identifier":1,"comparison_stamp":"0x00000102",)"
              R"("options":"0x0003","activation_method":"0x0021","location_offset":138,"size":3,)"
              R"("version":"app 1"},{"classification":11,"identifier":2,)"
              R"("comparison_stamp":"0xffffffff","options":"0x0000","activation_method":"0x0000",)"
              R"("location_offset":141,"size":2,"version":"b)"
              "\xC3\xA9"
              R"(ta"}])");
}

TEST_F(PkgCreate, OverAnImageOfItsOwn) {
    write("out", "abc");
    EXPECT_EQ(create({"out", "two"}).status, 0);
    EXPECT_EQ(content_of(path("out")).substr(138), "abcde");
}

TEST_F(PkgCreate, AnImageForEachComponent) {
    const std::string where = path("description") + ":12: ComponentImageInformationArea: ";
    expect_refused({}, where + "has 2 components, and 0 are given with --image");
    expect_refused({"one"}, where + "has 2 components, and 1 is given with --image");
    expect_refused({"one", "two", "one"}, where + "has 2 components, and 3 are given with --image");
}

TEST_F(PkgCreate, ImagesThatAreNone) {
    const std::string size = ": an image has 1 to 4294967295 bytes, this one has ";
    write("empty", "");
    write("huge", "");
    fs::resize_file(path("huge"), uint64_t{1} << 32);
    expect_refused({"one", "empty"}, path("empty") + size + "0");
    expect_refused({"one", "huge"}, path("huge") + size + "4294967296");
    expect_refused({"one", "none"}, path("none") + ": No such file or directory");
    fs::create_directory(path("folder"));
    expect_refused({"folder", "one"}, path("folder") + ": Is a directory");
    mkfifo(path("fifo").c_str(), 0600);
    expect_refused({"fifo", "one"}, path("fifo") + ": this is no regular file");
}

TEST_F(PkgCreate, AnImageBehindTheLastByteThatCanBeNamed) {
    write("large", "");
    fs::resize_file(path("large"), (uint64_t{1} << 32) - 1);
    expect_refused({"large", "two"},
                   path("two") +
                       ": the image would begin at byte 4294967433, behind the last that a "
                       "package can name");
}

TEST_F(PkgCreate, PlacesThatCannotBeWritten) {
    const Outcome nowhere = run_tool({"pkg", "create", path("none/out"), "--metadata",
                                      path("description"), "--image", path("one"), path("two")});
    expect_error(nowhere, 1,
                 "sideband-sim: pkg create: " + path("none/out") +
                     ": cannot be written: No such file or directory");
    expect_error(run_tool({"pkg", "create", path("out")}), 2,
                 "sideband-sim: pkg create: --metadata is required (try --help)");
}

/// The metadata that a package of another maker must have been made of.
Json description_of(const Json& decoded) {
    const auto bits = [](uint64_t number) {
        Json list = Json::array();
        for (int bit = 0; bit < 32; ++bit) {
            if ((number >> bit & 1) != 0) {
                list.push_back(bit);
            }
        }
        return list;
    };
    const Json& time = decoded.at("release_date_time");
    const auto two = [&time](const char* field) {
        const std::string text = std::to_string(time.at(field).get<int>());
        return text.size() < 2 ? "0" + text : text;
    };
    Json header{
        {"PackageHeaderIdentifier", decoded.at("identifier")},
        {"PackageHeaderFormatVersion", decoded.at("header_format_revision")},
        {"PackageReleaseDateTime", two("day") + "/" + two("month") + "/" + two("year") + " " +
                                       two("hour") + ":" + two("minute") + ":" + two("second")},
        {"PackageVersionString", decoded.at("package_version").at("value")}};
    Json records = Json::array();
    for (const Json& record : decoded.at("device_records")) {
        Json descriptors = Json::array();
        for (const Json& one : record.at("descriptors")) {
            Json descriptor{{"DescriptorType", one.at("type")}};
            if (one.contains("title")) {
                descriptor["VendorDefinedDescriptorTitleString"] = one.at("title");
                descriptor["VendorDefinedDescriptorData"] = one.at("vendor_data_hex");
            } else {
                descriptor["DescriptorData"] = one.at("data_hex");
            }
            descriptors.push_back(descriptor);
        }
        records.push_back(
            {{"DeviceUpdateOptionFlags", bits(record.at("update_option_flags").get<uint64_t>())},
             {"ComponentImageSetVersionString", record.at("image_set_version").at("value")},
             {"ApplicableComponents", record.at("applicable_components")},
             {"Descriptors", descriptors}});
    }
    Json components = Json::array();
    for (const Json& one : decoded.at("components")) {
        components.push_back({{"ComponentClassification", one.at("classification")},
                              {"ComponentIdentifier", one.at("identifier")},
                              {"ComponentOptions", bits(one.at("options").get<uint64_t>())},
                              {"RequestedComponentActivationMethod",
                               bits(one.at("requested_activation_method").get<uint64_t>())},
                              {"ComponentVersionString", one.at("version").at("value")},
                              {"ComponentComparisonStamp", one.at("comparison_stamp")}});
    }
    return {{"PackageHeaderInformation", header},
            {"FirmwareDeviceIdentificationArea", records},
            {"ComponentImageInformationArea", components}};
}

/// A package that the common creator script has made comes out again, byte for byte.
TEST_F(PkgCreate, PackagesOfAnotherMakerComeOutTheSame) {
    const std::string folder = std::string(SIDEBAND_DATA_DIR) + "/packages/";
    if (!fs::exists(folder)) {
        GTEST_SKIP() << "no recorded packages in " << folder;
    }
    for (const char* name : {"a_nic_single_64k", "b_three_records_three_components", "d_bitmap_16",
                             "d_bitmap_32", "g_longest_strings"}) {
        SCOPED_TRACE(name);
        const Json decoded = parse_json(content_of(folder + name + ".json").c_str()).at("decoded");
        const std::string package = content_of(folder + name + ".fwpkg");
        write("description", description_of(decoded).dump());
        std::vector<std::string> images;
        for (const Json& component : decoded.at("components")) {
            images.push_back("image" + std::to_string(images.size()));
            write(images.back(), package.substr(component.at("location_offset").get<size_t>(),
                                                component.at("size").get<size_t>()));
        }
        const Outcome made = create(images);
        EXPECT_EQ(made.status, 0) << made.err;
        EXPECT_TRUE(content_of(path("out")) == package);
    }
}

}  // namespace
