// SPDX-License-Identifier: Apache-2.0
// Tests of pkg show: text, JSON, packages of other makers, files that are no good packages.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

#include "testing/package_builder.h"
#include "tests/tools/tool_runner.h"
#include "tests/tools/update/firmware_bench.h"
#include "tools/update/descriptor.h"

namespace {

namespace fs = std::filesystem;
using tool::Json;
using tool::Package;
using tool_test::expect_error;
using tool_test::file_of;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::run_tool;
using tool_test::run_tool_for;
using tool_test::TemporaryFile;

std::string text_of(const std::vector<uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
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
              "  TYPE    NAME           VALUE   DATA\n"
              "  0x0000  PCI Vendor ID  0x15b3  b315\n"
              "  0x0002  UUID           -       0aff\n"
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
           "descriptors": [{"type": "0x0000", "name": "PCI Vendor ID", "data": "b315",
                            "value": "0x15b3"},
                           {"type": "0x0002", "name": "UUID", "data": "0aff"}]},
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
    EXPECT_EQ(one_document(shown.out).dump(), parse_json(wanted).dump());
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
    EXPECT_TRUE(run_tool({"pkg", "show", file.path()}).out.starts_with("Version   a\\x0ab\xFF\n"));
    EXPECT_EQ(one_document(run_tool({"pkg", "show", file.path(), "--json"}).out)["version"],
              "a\\x0ab\xEF\xBF\xBD");
}

/// Sees how often a file is opened while it lives.
class OpenWatch {
public:
    explicit OpenWatch(const std::string& path) : descriptor_(inotify_init1(IN_NONBLOCK)) {
        EXPECT_GE(inotify_add_watch(descriptor_, path.c_str(), IN_OPEN | IN_ACCESS | IN_CLOSE), 0);
    }
    ~OpenWatch() { close(descriptor_); }
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;

    /// Like events in a row count as one; what is done with the file between two openings parts
    /// them.
    size_t opened() const {
        size_t count = 0;
        inotify_event event{};
        while (read(descriptor_, &event, sizeof event) == static_cast<ssize_t>(sizeof event)) {
            count += (event.mask & IN_OPEN) != 0 ? 1 : 0;
        }
        return count;
    }

private:
    int descriptor_;
};

TEST(PkgShow, ReadsItsFileOnceSoThatNobodyCanSwapItInBetween) {
    const TemporaryFile file(file_of(sample()));
    const OpenWatch watch(file.path());
    EXPECT_EQ(run_tool({"pkg", "show", file.path()}).status, 0);
    EXPECT_EQ(watch.opened(), 1U);
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
        {file_of(other), "this is no PLDM firmware package"},
        {"", "this is no PLDM firmware package"},
        {"{}", "this is no PLDM firmware package"},
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

TEST(BadPackage, IsNoFifoAndNoDevice) {
    const TemporaryFile place("");
    const std::string fifo = place.path() + "-fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {fifo, std::string("/dev/zero"), std::string("/dev/null")}) {
        expect_error(run_tool_for({"pkg", "show", path}, 20), 3,
                     "sideband-sim: pkg show: " + path + ": this is no regular file");
        EXPECT_EQ(run_tool_for({"pldm", "fw-update", "nic0", path}, 20).status, 3);
    }
    unlink(fifo.c_str());
}

TEST(BadPackage, HasALargestSize) {
    const TemporaryFile file(file_of(sample()));
    constexpr off_t kMost = off_t{0xFFFFFFFF} * 2;
    if (truncate(file.path().c_str(), kMost + 1) != 0) {
        GTEST_SKIP() << "no file of this size can be made";
    }
    expect_error(run_tool({"pkg", "show", file.path()}), 3,
                 "sideband-sim: pkg show: " + file.path() +
                     ": the file has 8589934591 bytes, a package has at most 8589934590");
    ASSERT_EQ(truncate(file.path().c_str(), kMost), 0);
    EXPECT_EQ(run_tool({"pkg", "show", file.path()}).status, 0);
}

TEST(BadPackage, OfALaterFormatIsRefusedByNamingTheFormat) {
    const std::pair<std::string, const char*> formats[] = {
        {"1244d2648d7d4718a030fc8a56587d5a", "1.1"},
        {"3119ce2fe80a4a99af6d46f8b121f6bf", "1.2"},
        {"7b291c996db64208801b02026e463c78", "1.3"}};
    for (const auto& [identifier, version] : formats) {
        Package package = sample();
        for (size_t i = 0; i < package.identifier.size(); ++i) {
            package.identifier[i] =
                static_cast<uint8_t>(std::stoul(identifier.substr(2 * i, 2), nullptr, 16));
        }
        const std::string content = file_of(package);
        for (const size_t size : {content.size(), size_t{16}}) {
            const TemporaryFile file(content.substr(0, size));
            expect_error(run_tool({"pkg", "show", file.path()}), 3,
                         "sideband-sim: pkg show: " + file.path() + ": package header format " +
                             version + " (" + identifier + ") is not supported, only 1.0");
        }
    }
}

TEST(BadPackage, CutAnywhereInItsHeaderIsRefused) {
    tool::PackageLayout layout;
    const std::string good = text_of(tool::build_package(sample(), &layout));
    std::vector<size_t> ends{1, 15, 16, 18, 19, 35, 36, layout.checksum, layout.checksum + 3};
    for (const size_t at : {layout.record_count, layout.records[0], layout.records[1],
                            layout.component_count, layout.components[0], layout.components[1]}) {
        ends.insert(ends.end(), {at, at + 1, at + 5});
    }
    for (const size_t end : ends) {
        const TemporaryFile file(good.substr(0, end));
        const Outcome cut = run_tool({"pkg", "show", file.path()});
        EXPECT_EQ(cut.status, 3) << end;
        EXPECT_EQ(cut.err, "sideband-sim: pkg show: " + file.path() + ": " +
                               (end < 16 ? "this is no PLDM firmware package\n"
                                         : "the file ends inside the package header\n"))
            << end;
    }
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

/// Names of the descriptor types as the standard has them, by those of the sidecars.
std::string descriptor_name(const std::string& name) {
    static const std::map<std::string, std::string> kNames{
        {"pci_vendor_id", "PCI Vendor ID"},
        {"iana_enterprise_id", "IANA Enterprise ID"},
        {"uuid", "UUID"},
        {"pnp_vendor_id", "PnP Vendor ID"},
        {"acpi_vendor_id", "ACPI Vendor ID"},
        {"pci_device_id", "PCI Device ID"},
        {"pci_subsystem_vendor_id", "PCI Subsystem Vendor ID"},
        {"pci_subsystem_id", "PCI Subsystem ID"},
        {"acpi_product_id", "ACPI Product Identifier"},
        {"ascii_model_number_long", "ASCII Model Number (Long String)"},
        {"vendor_defined", "Vendor Defined"}};
    const auto found = kNames.find(name);
    EXPECT_NE(found, kNames.end()) << name;
    return found == kNames.end() ? "" : found->second;
}

/// A descriptor as it is shown; what its value is made of is tested apart.
Json descriptor_of(const Json& decoded) {
    Json descriptor{{"type", number("0x%04x", decoded["type"])},
                    {"name", descriptor_name(decoded["name"].get<std::string>())},
                    {"data", decoded["data_hex"]}};
    std::vector<uint8_t> data;
    const std::string digits = decoded["data_hex"].get<std::string>();
    for (size_t i = 0; i < digits.size(); i += 2) {
        data.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    const std::string value = tool::descriptor_value({decoded["type"].get<uint16_t>(), data});
    if (!value.empty()) {
        descriptor["value"] = value;
    }
    return descriptor;
}

Json record_of(const Json& decoded) {
    Json descriptors = Json::array();
    for (const Json& descriptor : decoded["descriptors"]) {
        descriptors.push_back(descriptor_of(descriptor));
    }
    uint32_t applicable = 0;
    for (unsigned component : decoded["applicable_components"].get<std::vector<unsigned>>()) {
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
        const Json sidecar = test::read_json(entry.path());
        const std::string name = sidecar["file"].get<std::string>();
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
