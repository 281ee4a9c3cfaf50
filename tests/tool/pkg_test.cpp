// SPDX-License-Identifier: Apache-2.0
// Tests of pkg show: text, JSON, packages of other makers, files that are no good packages.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

#include "tool_runner.h"
#include "tools/package_builder.h"

namespace {

namespace fs = std::filesystem;
using tool::Package;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_tool;
using tool_test::TemporaryFile;
using Json = nlohmann::ordered_json;

std::string text_of(const std::vector<uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string file_of(const Package& package) {
    return text_of(tool::build_package(package));
}

Package sample() {
    Package package;
    package.version = "nic 1.2.0";
    tool::PackageRecord mine;
    mine.components = {0, 1};
    mine.version = "set 1.2.0";
    mine.descriptors = {{0x0000, {0xB3, 0x15}, {}}, {0x0002, {0x0A, 0xFF}, {}}};
    mine.package_data = {0x01, 0xAB};
    tool::PackageRecord any;
    any.version = "any";
    package.records = {mine, any};
    package.components = {
        {.comparison_stamp = 0x1A2B, .version = "app 1.2.0", .image = {1, 2, 3}},
        {.identifier = 2, .options = 1, .activation_method = 0x20, .version = "", .image = {4}}};
    return package;
}

TEST(PkgShow, PrintsWhatThePackageHolds) {
    const TemporaryFile file(file_of(sample()));
    const Outcome shown = run_tool({"pkg", "show", file.path()});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "");
    EXPECT_EQ(shown.out,
              "Version   nic 1.2.0\n"
              "Header    155 bytes, format revision 1, checksum 0xd94bc8dc\n"
              "Contents  2 components for 2 device records\n"
              "\n"
              "Device record 0\n"
              "  Version       set 1.2.0\n"
              "  Components    0, 1\n"
              "  Package data  2 bytes\n"
              "  TYPE    NAME           DATA\n"
              "  0x0000  PCI Vendor ID  b315\n"
              "  0x0002  Unknown ID     0aff\n"
              "\n"
              "Device record 1\n"
              "  Version       any\n"
              "  Components    none\n"
              "  for every device\n"
              "\n"
              "COMPONENT  CLASS  ID  STAMP       OPTIONS  ACTIVATION  OFFSET  SIZE  VERSION\n"
              "        0     10   1  0x00001a2b  0x0000   0x0000         155     3  app 1.2.0\n"
              "        1     10   2  0xffffffff  0x0001   0x0020         158     1\n");
}

TEST(PkgShow, PrintsTheSameAsJson) {
    const TemporaryFile file(file_of(sample()));
    const Outcome shown = run_tool({"pkg", "show", file.path(), "--json"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "");
    const char* const wanted = R"json({
        "header_format_revision": 1, "header_size": 155, "checksum": "0xd94bc8dc",
        "version": "nic 1.2.0", "component_bitmap_bit_length": 8,
        "records": [
          {"record_length": 35, "applicable_components": "0x00000003",
           "image_set_version": "set 1.2.0", "package_data": "01ab",
           "descriptors": [{"type": "0x0000", "name": "PCI Vendor ID", "data": "b315"},
                           {"type": "0x0002", "name": "Unknown ID", "data": "0aff"}]},
          {"record_length": 15, "applicable_components": "0x00000000",
           "image_set_version": "any", "package_data": "", "descriptors": []}],
        "components": [
          {"classification": 10, "identifier": 1, "comparison_stamp": "0x00001a2b",
           "options": "0x0000", "activation_method": "0x0000", "location_offset": 155, "size": 3,
           "version": "app 1.2.0"},
          {"classification": 10, "identifier": 2, "comparison_stamp": "0xffffffff",
           "options": "0x0001", "activation_method": "0x0020", "location_offset": 158, "size": 1,
           "version": ""}]})json";
    // As text, so that the order of the keys counts too.
    EXPECT_EQ(one_document(shown.out).dump(), Json::parse(wanted).dump());
}

TEST(PkgShow, AsksNoBoard) {
    const TemporaryFile file(file_of(sample()));
    const TemporaryFile board(R"({"name": "bare", "buses": [{"bus": 1}]})");
    EXPECT_EQ(run_tool({"--board", board.path(), "pkg", "show", file.path()}).status, 0);
}

TEST(PkgShow, KeepsVersionsThatAreNoTextOnOneLine) {
    Package package = sample();
    package.version = "a\nb\xFF";
    const TemporaryFile file(file_of(package));
    EXPECT_TRUE(run_tool({"pkg", "show", file.path()}).out.starts_with("Version   a b\xFF\n"));
    EXPECT_EQ(one_document(run_tool({"pkg", "show", file.path(), "--json"}).out)["version"],
              "a\nb\xEF\xBF\xBD");
}

TEST(PkgShow, NotesAComponentThatIsNotWhollyThere) {
    std::string content = file_of(sample());
    content.pop_back();
    const TemporaryFile file(content);
    const Outcome shown = run_tool({"pkg", "show", file.path(), "--json"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "note: " + file.path() + ": component 1 is not wholly in the file\n");
    EXPECT_EQ(one_document(shown.out)["components"].size(), 2U);
}

TEST(BadPackage, EndsWithThreeAndOneLine) {
    Package other = sample();
    other.identifier[0] ^= 1;
    Package unsealed = sample();
    unsealed.checksum = 0;
    Package contradicting = sample();
    contradicting.records[0].descriptor_count = 255;
    const std::string good = file_of(sample());
    const std::pair<std::string, const char*> cases[] = {
        {file_of(other), "this is no firmware package of header format 1.0"},
        {"", "this is no firmware package of header format 1.0"},
        {"{}", "this is no firmware package of header format 1.0"},
        {good.substr(0, 20), "the file ends inside the package header"},
        {good.substr(0, 154), "the file ends inside the package header"},
        {file_of(unsealed), "the header checksum is wrong"},
        {file_of(contradicting), "the package header contradicts itself"},
    };
    for (const auto& [content, reason] : cases) {
        SCOPED_TRACE(reason);
        const TemporaryFile file(content);
        expect_error(run_tool({"pkg", "show", file.path()}), 3,
                     "sideband-sim: pkg show: " + file.path() + ": " + reason);
        const Outcome document = run_tool({"pkg", "show", file.path(), "--json"});
        EXPECT_EQ(document.status, 3);
        EXPECT_EQ(one_document(document.out)["error"]["exit_status"], 3);
    }
}

TEST(BadPackage, MayNotBeThereOrNoFile) {
    expect_error(run_tool({"pkg", "show", "/nonexistent/x"}), 3,
                 "sideband-sim: pkg show: /nonexistent/x: No such file or directory");
    expect_error(run_tool({"pkg", "show", "/"}), 3, "sideband-sim: pkg show: /: Is a directory");
}

TEST(BadPackage, MustBeNamed) {
    expect_error(run_tool({"pkg", "show"}), 2,
                 "sideband-sim: pkg show: PACKAGE is required (try --help)");
    expect_error(run_tool({"pkg"}), 2, "sideband-sim: pkg: a command is required (try --help)");
}

// ---- Packages of other makers ----

const fs::path kFolder = fs::path(SIDEBAND_DATA_DIR) / "packages";

class PkgShowReal : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fs::is_directory(kFolder)) {
            GTEST_SKIP() << "no firmware packages in " << kFolder;
        }
    }
};

std::string number(const char* format, const Json& value) {
    char text[32];
    std::snprintf(text, sizeof text, format, value.get<unsigned>());
    return text;
}

/// Names of the descriptor types as the library has them, by those of the sidecars.
std::string descriptor_name(const std::string& name) {
    static const std::map<std::string, std::string> names{
        {"pci_vendor_id", "PCI Vendor ID"},
        {"iana_enterprise_id", "IANA Enterprise ID"},
        {"uuid", "Unknown ID"},
        {"pnp_vendor_id", "Pnp Vendor ID"},
        {"acpi_vendor_id", "ACPI Vendor ID"},
        {"pci_device_id", "PCI Device ID"},
        {"pci_subsystem_vendor_id", "PCI SubSystem Vendor ID"},
        {"pci_subsystem_id", "PCI Subsystem ID"},
        {"acpi_product_id", "ACPI Product Identifer"},
        {"ascii_model_number_long", "Unknown ID"},
        {"vendor_defined", "Vendor Defined"}};
    const auto found = names.find(name);
    EXPECT_NE(found, names.end()) << name;
    return found == names.end() ? "" : found->second;
}

Json record_of(const Json& decoded) {
    Json descriptors = Json::array();
    for (const Json& descriptor : decoded["descriptors"]) {
        descriptors.push_back({{"type", number("0x%04x", descriptor["type"])},
                               {"name", descriptor_name(descriptor["name"])},
                               {"data", descriptor["data_hex"]}});
    }
    uint32_t applicable = 0;
    for (unsigned component : decoded["applicable_components"]) {
        applicable |= component < 32 ? 1U << component : 0U;
    }
    return {{"record_length", decoded["record_length"]},
            {"applicable_components", number("0x%08x", applicable)},
            {"image_set_version", decoded["image_set_version"]["value"]},
            {"package_data",
             decoded.contains("package_data_hex") ? decoded["package_data_hex"] : Json("")},
            {"descriptors", descriptors}};
}

Json component_of(const Json& decoded) {
    return {{"classification", decoded["classification"]},
            {"identifier", decoded["identifier"]},
            {"comparison_stamp", number("0x%08x", decoded["comparison_stamp"])},
            {"options", number("0x%04x", decoded["options"])},
            {"activation_method", number("0x%04x", decoded["requested_activation_method"])},
            {"location_offset", decoded["location_offset"]},
            {"size", decoded["size"]},
            {"version", decoded["version"]["value"]}};
}

/// The document that a sidecar stands for.
Json document_of(const Json& decoded) {
    Json records = Json::array();
    for (const Json& record : decoded["device_records"]) {
        records.push_back(record_of(record));
    }
    Json components = Json::array();
    for (const Json& component : decoded["components"]) {
        components.push_back(component_of(component));
    }
    return {{"header_format_revision", decoded["header_format_revision"]},
            {"header_size", decoded["header_size"]},
            {"checksum", number("0x%08x", decoded["header_checksum"])},
            {"version", decoded["package_version"]["value"]},
            {"component_bitmap_bit_length", decoded["component_bitmap_bit_length"]},
            {"records", records},
            {"components", components}};
}

TEST_F(PkgShowReal, AgreesWithTheSidecars) {
    size_t good = 0;
    size_t bad = 0;
    for (const auto& entry : fs::directory_iterator(kFolder)) {
        if (entry.path().extension() != ".json") {
            continue;
        }
        const Json sidecar = Json::parse(std::ifstream(entry.path()));
        const std::string name = sidecar["file"];
        SCOPED_TRACE(name);
        const Outcome shown = run_tool({"pkg", "show", kFolder / name, "--json"});
        // DSP0267 ties revision to identifier and has every component inside the package. The
        // library takes the identifier's word, and looks at images once a device asks for them.
        const bool only_noted =
            name == "e_identifier_1_0_revision_2.fwpkg" || name == "f_truncated_component.fwpkg";
        if (sidecar["expect"]["result"] == "accept") {
            EXPECT_EQ(shown.status, 0);
            EXPECT_EQ(one_document(shown.out).dump(), document_of(sidecar["decoded"]).dump());
            good++;
        } else {
            EXPECT_EQ(shown.status, only_noted ? 0 : 3);
            EXPECT_EQ(one_document(shown.out).contains("error"), !only_noted);
            bad++;
        }
    }
    EXPECT_EQ(good, 6U);
    EXPECT_EQ(bad, 9U);
}

}  // namespace
