// SPDX-License-Identifier: Apache-2.0
// Tests that no text of a device, a package or a file reaches whoever reads the output as anything
// but text: in tables, documents, figures, reports, errors and the library's own dumps.
#include <cstdlib>

#include "sim/board/bytes.h"
#include "tests/tools/hostile_text.h"
#include "tests/tools/nvme/drive_bench.h"
#include "tests/tools/update/firmware_bench.h"
#include "tools/shell/text.h"

namespace {

using tool::Json;
using tool_test::card_package;
using tool_test::contains;
using tool_test::DriveBench;
using tool_test::expect_harmless;
using tool_test::expect_openmetrics;
using tool_test::file_of;
using tool_test::FirmwareBoard;
using tool_test::hostile_bytes;
using tool_test::hostile_texts;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::run_on;
using tool_test::run_tool;
using tool_test::TemporaryFile;
using Words = std::vector<std::string>;

const std::string kCard = "nic\x1b[31m\u202e0";

std::string hex_of(const std::string& bytes) {
    return tool::hex({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

/// UTF-8 of at most three bytes a character as UTF-16, the high byte first, with its end.
std::string utf16_hex(const std::string& text) {
    std::string hex;
    for (size_t at = 0; at < text.size();) {
        const auto lead = static_cast<uint8_t>(text[at]);
        const size_t size = lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
        uint32_t point = size == 1 ? lead : lead & (0xFFU >> (size + 1));
        for (size_t i = 1; i < size; ++i) {
            point = point << 6 | (static_cast<uint8_t>(text[at + i]) & 0x3FU);
        }
        hex += hex_of({static_cast<char>(point >> 8), static_cast<char>(point)});
        at += size;
    }
    return hex + "0000";
}

/// A sensor auxiliary names PDR (DSP0248) behind its common header: one name in one language.
Json names_record(uint8_t sensor, const std::string& name) {
    const std::string language("e\x1b[m\n\0", 6);
    return {
        {"type", 6},
        {"hex", "0000" + tool::hex({&sensor, 1}) + "000101" + hex_of(language) + utf16_hex(name)}};
}

/// Every text as a sensor's name and unit, in a record of names and as a field of FRU data.
std::string terminus_board() {
    Json board = parse_json(FirmwareBoard().text());
    Json& card = board["devices"][0];
    card["name"] = kCard;
    constexpr uint8_t kNamedByDevice = 100;
    uint8_t id = 0;
    for (const std::string& text : hostile_texts()) {
        ++id;
        const Json wave{{"shape", "constant"}, {"value", 1}};
        card["sensors"].push_back(
            {{"kind", "numeric"}, {"id", id}, {"name", text}, {"unit", text}, {"waveform", wave}});
        const uint8_t other = kNamedByDevice + id;
        card["sensors"].push_back({{"kind", "numeric"}, {"id", other}, {"waveform", wave}});
        card["pdrs"].push_back(names_record(other, text));
        const Json composite{{"state_set", 1}, {"states", Json::array({1})}};
        card["sensors"].push_back({{"kind", "state"},
                                   {"id", id},
                                   {"name", text},
                                   {"composites", Json::array({composite})}});
    }
    // ASCII, UTF-8, and UTF-16 in all its byte orders.
    for (const int encoding : {1, 2, 3, 4, 5}) {
        Json fields = Json::array();
        for (const std::string& text : hostile_bytes()) {
            fields.push_back({{"type", "model"}, {"hex", hex_of(text)}});
        }
        for (const char* hex : {"001b005b0032004a", "1b005b0032004a00", "202e0041", "2e204100",
                                "d8000041", "009b", "9b00", "feff001b"}) {
            fields.push_back({{"type", "version"}, {"hex", hex}});
        }
        card["fru"]["records"].push_back(
            {{"set", encoding}, {"encoding", encoding}, {"fields", fields}});
    }
    return board.dump();
}

/// The card with some of the texts as versions: an answer holds no more of them.
std::string firmware_board(size_t first) {
    constexpr size_t kMost = 4;
    const auto& texts = hostile_texts();
    FirmwareBoard board;
    board.firmware()["active"] = texts[first];
    for (size_t i = first; i < std::min(first + kMost, texts.size()); ++i) {
        board.firmware()["components"].push_back({{"identifier", 100 + i},
                                                  {"active", {{"text", texts[i]}}},
                                                  {"pending", {{"text", texts[i]}}}});
    }
    return board.text();
}

/// As text with the library's dumps, and as a document. @return what was printed as text
Outcome expect_harmless_both_ways(const std::string& board, Words words) {
    SCOPED_TRACE(Json(words).dump());
    const Outcome document = run_on(board, [&] {
        Words wish = words;
        wish.emplace_back("--json");
        return wish;
    }());
    expect_harmless(document);
    EXPECT_FALSE(contains(document.out, "\\u00")) << document.out;
    one_document(document.out);
    words.emplace_back("--verbose");
    Outcome text = run_on(board, words);
    expect_harmless(text);
    EXPECT_EQ(text.status, document.status) << text.err;
    return text;
}

TEST(HostileStrings, OfATerminusAreText) {
    const std::string board = terminus_board();
    const Outcome shown = expect_harmless_both_ways(board, {"pldm", "sensors", kCard});
    EXPECT_EQ(shown.status, 0) << shown.err;
    for (const std::string& text : hostile_texts()) {
        const std::string name = tool::printable(text.substr(0, text.find('\0')));
        EXPECT_TRUE(contains(shown.out, name)) << name;
    }
    const std::string fru = expect_harmless_both_ways(board, {"pldm", "fru", kCard}).out;
    EXPECT_TRUE(contains(fru, "clear\\x1b[2J\\x1b[H")) << fru;
    for (const Words& words : {Words{"pldm", "info", kCard},
                               {"pldm", "sensors", kCard, "3"},
                               {"pldm", "sensors", kCard, "999"},
                               {"pldm", "pdr", "list", kCard},
                               {"pldm", "pdr", "show", kCard},
                               {"pldm", "pdr", "dump", kCard},
                               {"check", kCard, "--rule", "fru"},
                               {"scan"}}) {
        expect_harmless_both_ways(board, words);
    }
}

TEST(HostileStrings, OfFirmwareAreText) {
    for (size_t first = 0; first < hostile_texts().size(); first += 4) {
        const std::string board = firmware_board(first);
        const Outcome info = expect_harmless_both_ways(board, {"pldm", "fw-info", "nic0"});
        EXPECT_EQ(info.status, 0) << info.err;
        EXPECT_TRUE(contains(info.out, tool::printable(hostile_texts()[first]))) << info.out;
        const Outcome metrics = run_on(board, {"metrics", "nic0"});
        expect_harmless(metrics);
        expect_openmetrics(metrics.out);
        EXPECT_TRUE(contains(metrics.out, "component=\"10:" + std::to_string(100 + first) + ":0\""))
            << metrics.out;
    }
}

TEST(HostileStrings, InFiguresStayInTheirLabels) {
    const Outcome metrics = run_on(terminus_board(), {"metrics", kCard});
    expect_harmless(metrics);
    expect_openmetrics(metrics.out);
    EXPECT_TRUE(contains(metrics.out, "name=\"gpj\\\\xe2\\\\x80\\\\xaegpj.exe"));
    expect_harmless(run_on(terminus_board(), {"metrics", kCard, "--json"}));
}

/// The messages that passed in a run with --verbose, as exchanges for a device that plays back.
Json exchanges_of(const std::string& verbose) {
    constexpr size_t kHeader = 4;
    constexpr uint8_t kStart = 0x80;
    constexpr uint8_t kEnd = 0x40;
    Json exchanges = Json::array();
    std::vector<uint8_t> message;
    for (const std::string& line : tool::lines_of(verbose)) {
        const size_t way = line.find_first_of("<>");
        if (!line.starts_with("packet: ") || way == std::string::npos) {
            continue;
        }
        const size_t bytes_at = line.find("  ", way);
        const std::vector<uint8_t> packet = tool::parse_hex(line.substr(bytes_at)).value();
        if ((packet[kHeader - 1] & kStart) != 0) {
            message.clear();
        }
        message.insert(message.end(), packet.begin() + kHeader, packet.end());
        if ((packet[kHeader - 1] & kEnd) == 0) {
            continue;
        }
        const std::string body = tool::hex(std::span(message).subspan(1));
        if (line[way] == '>') {
            exchanges.push_back({{"message_type", message[0]}, {"request", body}});
        } else {
            exchanges.back()["response"] = body;
        }
    }
    return exchanges;
}

/// The exchanges with other bytes in the place of a text, and integrity checks that fit.
Json with_text(const Json& exchanges, const std::string& from, const std::string& to) {
    constexpr uint8_t kNvmeMi = 0x84;
    Json changed = Json::array();
    for (Json exchange : exchanges.items()) {
        std::string response = exchange["response"].get<std::string>();
        const size_t at = response.find(hex_of(from));
        if (at != std::string::npos && exchange["message_type"].get<uint8_t>() == kNvmeMi) {
            response.replace(at, 2 * from.size(), hex_of(to));
            std::vector<uint8_t> message = tool::parse_hex("84" + response).value();
            message.resize(message.size() - 4);
            sim::append_le32(message, sim::crc32c(message));
            exchange["response"] = tool::hex(std::span(message).subspan(1));
        }
        changed.push_back(exchange);
    }
    return changed;
}

constexpr size_t kModel = 40;
constexpr size_t kSerial = 20;
constexpr size_t kRevision = 8;
constexpr size_t kDriveTexts = kModel + kSerial + 2 * kRevision;

/// What the simulated drive says to these commands, with texts that can be told from the rest.
Json drive_exchanges(const std::vector<Words>& commands) {
    DriveBench bench;
    bench.drive()["model"] = std::string(kModel, 'M');
    bench.drive()["serial"] = std::string(kSerial, 'S');
    bench.drive()["firmware"]["slots"] =
        Json::array({std::string(kRevision, 'R'), std::string(kRevision, 'O'), ""});
    Json exchanges = Json::array();
    for (Words words : commands) {
        words.emplace_back("--verbose");
        const Outcome run = bench.run(words);
        EXPECT_EQ(run.status, 0) << run.err;
        const Json recorded = exchanges_of(run.err);
        for (const Json& exchange : recorded.items()) {
            exchanges.push_back(exchange);
        }
    }
    return exchanges;
}

/// A drive that plays that back, but for the texts, which are the parts of another one.
std::string drive_board(Json exchanges, const std::string& text) {
    size_t at = 0;
    for (const auto& [size, letter] : std::initializer_list<std::pair<size_t, char>>{
             {kModel, 'M'}, {kSerial, 'S'}, {kRevision, 'R'}, {kRevision, 'O'}}) {
        exchanges = with_text(exchanges, std::string(size, letter), text.substr(at, size));
        at += size;
    }
    Json board = parse_json(DriveBench().board());
    board["devices"][0] = parse_json(
        R"({"name": "nvme0", "type": "replay", "bus": 1, "address": "0x3a", "eid": 16})");
    board["devices"][0]["exchanges"] = exchanges;
    return board.dump();
}

/// All texts but the long one, in pieces that fill those of a drive.
std::vector<std::string> drive_texts() {
    std::string all;
    for (const std::string& text : hostile_bytes()) {
        all += text.size() < kDriveTexts ? text : "";
    }
    std::vector<std::string> pieces;
    for (size_t at = 0; at < all.size(); at += kDriveTexts) {
        pieces.push_back(all.substr(at, kDriveTexts));
        pieces.back().resize(kDriveTexts, ' ');
    }
    return pieces;
}

TEST(HostileStrings, OfADriveAreText) {
    const std::vector<Words> commands{{"nvme", "identify", "controller", "nvme0"},
                                      {"nvme", "log", "firmware", "nvme0"}};
    const Json exchanges = drive_exchanges(commands);
    for (const std::string& text : drive_texts()) {
        const std::string board = drive_board(exchanges, text);
        std::string shown;
        for (const Words& words : commands) {
            const Outcome run = expect_harmless_both_ways(board, words);
            EXPECT_EQ(run.status, 0) << run.err;
            shown += run.out;
        }
        const std::string model = text.substr(0, std::min(kModel, text.find('\0')));
        const std::string printed = tool::printable(model);
        EXPECT_TRUE(contains(shown, printed.substr(0, printed.find_last_not_of(' ') + 1))) << shown;
    }
}

TEST(HostileStrings, OfADriveStayInTheirLabels) {
    const Json exchanges = drive_exchanges({{"metrics", "nvme0"}});
    for (const std::string& revision :
         {"\x1b[2J\"\\\n\"", "\x9b\xc2\xe2\x80\xae!!\xe2", "\xff\xfe\"} 1\n#"}) {
        const std::string text = std::string(kModel + kSerial, 'x') + revision + revision;
        const Outcome metrics = run_on(drive_board(exchanges, text), {"metrics", "nvme0"});
        expect_harmless(metrics);
        expect_openmetrics(metrics.out);
        EXPECT_EQ(metrics.status, 0) << metrics.err;
    }
}

TEST(HostileStrings, OfVitalProductDataAreShownAsBytes) {
    DriveBench bench;
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    bench.drive()["vpd"] = hex_of(bytes);
    const Outcome vpd = expect_harmless_both_ways(bench.board(), {"nvme", "vpd", "read", "nvme0"});
    EXPECT_EQ(vpd.status, 0) << vpd.err;
    EXPECT_EQ(tool::valid_utf8(vpd.out), vpd.out);
}

/// A package with each of the texts as the version of a component.
tool::Package hostile_package() {
    tool::Package package = card_package();
    package.version = hostile_bytes()[0] + hostile_texts()[1];
    package.records[0].version = hostile_texts()[10] + hostile_bytes()[3];
    const std::string title = hostile_texts()[2];
    std::vector<uint8_t> vendor_defined{1, static_cast<uint8_t>(title.size())};
    vendor_defined.insert(vendor_defined.end(), title.begin(), title.end());
    // Not of this card, but shown.
    package.records.push_back(package.records[0]);
    package.records[1].descriptors.push_back({0xFFFF, vendor_defined, {}});
    package.components[0].version = hostile_texts()[0] + hostile_texts()[12];
    for (const std::string& text : hostile_bytes()) {
        tool::PackageComponent component = package.components[0];
        component.identifier = static_cast<uint16_t>(200 + package.components.size());
        component.version = text;
        package.components.push_back(component);
    }
    return package;
}

TEST(HostileStrings, OfAPackageAreText) {
    const TemporaryFile package(file_of(hostile_package()));
    const std::string board = FirmwareBoard().text();
    const Outcome shown = expect_harmless_both_ways(board, {"pkg", "show", package.path()});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_TRUE(contains(shown.out, "  long\xc0\\x9b\xe0\\x80\\x9b")) << shown.out;
    EXPECT_TRUE(contains(shown.out, "gpj\\xe2\\x80\\xaegpj.exe")) << shown.out;
    for (const Words& words : {Words{"pldm", "fw-update", "nic0", package.path(), "--query"},
                               {"pldm", "fw-update", "nic0", package.path()}}) {
        const Outcome update = expect_harmless_both_ways(board, words);
        EXPECT_EQ(update.status, 0) << update.err;
    }
}

TEST(HostileStrings, StayTextBesideABar) {
    const TemporaryFile package(file_of(hostile_package()));
    const TemporaryFile board(FirmwareBoard().text());
    Outcome update = tool_test::run_tool_on_terminal(
        {"pldm", "fw-update", "nic0", package.path(), "--board", board.path()}, 100);
    EXPECT_EQ(update.status, 0) << update.err;
    // What draws the bar is the tool's own, and so is what the terminal makes of a line end.
    size_t drawn = 0;
    for (const std::string own : {"\x1b[K", "\r"}) {
        for (size_t at = update.out.find(own); at != std::string::npos; ++drawn) {
            update.out.erase(at, own.size());
            at = update.out.find(own, at);
        }
    }
    EXPECT_GT(drawn, 2U);
    expect_harmless(update);
}

TEST(HostileStrings, OfADescriptionAreText) {
    const TemporaryFile image("image");
    for (const std::string& text : hostile_texts()) {
        const TemporaryFile description(
            Json{{"PackageHeaderInformation", {{text, text}}}, {text, 1}}.dump());
        const TemporaryFile folder("");
        const Outcome refused =
            run_tool({"pkg", "create", folder.path() + text.substr(0, text.find('\0')),
                      "--metadata", description.path(), "--image", image.path()});
        EXPECT_EQ(refused.status, 3) << refused.err;
        EXPECT_EQ(refused.err.find('\n'), refused.err.size() - 1) << refused.err;
        expect_harmless(refused);
    }
}

TEST(HostileStrings, OfABatchAndOfWhatItNamesAreText) {
    std::string lines;
    for (const std::string& text : hostile_bytes()) {
        lines += "mctp eid '" + tool::one_line(text.substr(0, text.find('\0'))) + "'\n";
        lines +=
            "scan --fault " + text.substr(0, text.find_first_of(std::string("\0\n'\"", 4))) + "\n";
    }
    const TemporaryFile batch(lines);
    const Outcome run = run_tool({"batch", batch.path(), "--keep-going"});
    EXPECT_NE(run.status, 0);
    expect_harmless(run);
    const Outcome documents = run_tool({"batch", batch.path(), "--keep-going", "--json"});
    expect_harmless(documents);
    for (const std::string& line : tool::lines_of(documents.out)) {
        one_document(line);
    }
}

TEST(HostileStrings, OfAnEndpointStayInAReport) {
    const std::string board = terminus_board();
    const TemporaryFile report("");
    const Outcome run = run_on(board, {"check", kCard, "--rule", "mctp", "--junit", report.path()});
    expect_harmless(run);
    const std::string parsed =
        "python3 -c 'import sys, xml.etree.ElementTree as e; e.parse(sys.argv[1])' ";
    EXPECT_EQ(std::system((parsed + report.path()).c_str()), 0) << report.content();
    expect_harmless({.status = 0, .out = report.content(), .err = ""});
    EXPECT_TRUE(contains(report.content(), "nic\\x1b[31m\\xe2\\x80\\xae0")) << report.content();
}

}  // namespace
