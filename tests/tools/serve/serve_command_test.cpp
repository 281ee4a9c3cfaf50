// SPDX-License-Identifier: Apache-2.0
// Tests of the command serve, as a client at the other end of the line sees it.
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "sim/board/bytes.h"
#include "sim/serial/frame.h"
#include "tests/tools/serve/serial_client.h"
#include "tests/tools/tool_runner.h"

namespace {

using sim::Bytes;
using sim::ByteView;
using sim::to_hex;
using tool::Json;
using tool_test::bytes_of;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::parse_json;
using tool_test::RunningTool;
using tool_test::SerialClient;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

/// The tool serving a board, and what it said of it.
class Served {
public:
    explicit Served(Strings arguments) : tool_(with_json(std::move(arguments))) {
        document_ = one_document(tool_.printed_until("\n}\n"));
    }

    const Json& document() const { return document_; }
    std::string tty() const { return document_.at("tty").get<std::string>(); }
    RunningTool& tool() { return tool_; }

    uint8_t eid_of(const std::string& name) const {
        for (const Json& endpoint : document_.at("endpoints")) {
            if (endpoint.at("name") == name) {
                return endpoint.at("eid").get<uint8_t>();
            }
        }
        throw std::runtime_error("no endpoint " + name);
    }

private:
    static Strings with_json(Strings arguments) {
        arguments.insert(arguments.begin(), {"serve", "--json"});
        return arguments;
    }

    RunningTool tool_;
    Json document_;
};

class Serve : public OwnBoard {
protected:
    Strings own_board() const { return {"--board", board_.path()}; }
};

const std::string kGetTid = "01800002";

TEST_F(Serve, PrintsOneDocumentAndServesWhatItSays) {
    Served served(own_board());
    const std::string tty = served.tty();
    EXPECT_TRUE(tty.starts_with("/dev/pts/")) << tty;
    Json expected = parse_json(R"({"tty": "", "eid": 8, "endpoints": [
        {"eid": 9, "name": "dev0", "type": "pldm", "transport": "i2c", "message_types": [1]},
        {"eid": 10, "name": "rec0", "type": "replay", "transport": "i2c",
         "message_types": [1, 2]},
        {"eid": 11, "name": "dead0", "type": "pldm", "transport": "i2c", "message_types": [1]}]})");
    expected["tty"] = tty;
    EXPECT_EQ(served.document().dump(), expected.dump());

    SerialClient client(tty);
    EXPECT_EQ(client.write_raw(bytes_of("7e 01 07 01 08 50 c8 00 80 02 25 db 7e")), 13U);
    EXPECT_EQ(to_hex(client.read_raw(17)), "7e010b015008c000000200081000fa017e");
    EXPECT_EQ(client.ask(9, kGetTid), "010000020007");
    EXPECT_EQ(client.ask(10, "020001"), "02aabb");
    const Outcome end = served.tool().end(SIGTERM);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(one_document(end.out).dump(), expected.dump()) << "nothing more";
    EXPECT_EQ(end.err, "");
}

TEST_F(Serve, TableAndCountsForPeople) {
    RunningTool tool({"serve", "--board", board_.path(), "--eid", "100"});
    const std::string out = tool.printed_until("dead0     pldm    i2c:2:0x50  pldm\n");
    const std::string tty = out.substr(0, out.find('\n')).substr(out.find("/dev"));
    EXPECT_EQ(out, "MCTP over serial on " + tty + R"(
EID  ENDPOINT  TYPE    WHERE       SPEAKS
100  -         bridge  serial      -
101  dev0      pldm    i2c:1:0x40  pldm
102  rec0      replay  i2c:2:0x30  pldm ncsi
103  dead0     pldm    i2c:2:0x50  pldm
)");
    SerialClient client(tty);
    EXPECT_EQ(client.ask(101, kGetTid), "010000020007");
    client.write_raw(bytes_of("7e 01 02 01 02 00 00 7e"));
    EXPECT_EQ(client.ask(100, "00800a00"),
              "00000a00ff040164800524000165010104014001660101030130016701010301"
              "50");
    const Outcome end = tool.end(SIGINT);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, out + "2 frames received, 2 sent; 1 refused, 0 discarded\n");
}

TEST_F(Serve, EachSignalIsItsOrdinaryEnd) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Served served(own_board());
        const Outcome end = served.tool().end(signal);
        EXPECT_EQ(end.status, 0) << signal;
        EXPECT_EQ(end.err, "") << signal;
    }
}

TEST_F(Serve, StateOutlivesItsClients) {
    Served served(own_board());
    {
        SerialClient first(served.tty());
        EXPECT_EQ(first.ask(9, "0180000122"), "0100000100") << "SetTID";
    }
    SerialClient second(served.tty());
    EXPECT_EQ(second.ask(9, kGetTid), "010000020022");
    SerialClient third(served.tty());
    third.own_eid = 0x51;
    EXPECT_EQ(third.ask(9, kGetTid), "010000020022") << "two have the line open";
}

/// A number that rises by one every ten milliseconds.
const char* const kClockBoard = R"({"name": "clock", "buses": [{"bus": 1}], "devices": [
    {"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40", "sensors": [
        {"kind": "numeric", "id": 1, "name": "time", "data_size": 4,
         "waveform": {"shape": "ramp", "min": 0, "max": 100000, "period_s": 1000}}]}]})";

TEST(ServeTime, WaveformsMoveInRealTime) {
    const TemporaryFile board(kClockBoard);
    Served served({"--board", board.path()});
    SerialClient client(served.tty());
    const auto reading = [&] {
        client.send(9, bytes_of("01800211010000"));
        const Bytes answer = client.receive();
        return answer.size() == 15 ? sim::le32(answer, 11) : 0;
    };
    const auto began = std::chrono::steady_clock::now();
    const uint32_t before = reading();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const uint32_t after = reading();
    const std::chrono::duration<double, std::centi> took = std::chrono::steady_clock::now() - began;
    EXPECT_GE(after - before, 49U);
    EXPECT_LE(after - before, took.count() + 1);
}

// ---- Messages of every size ----

/// An admin command in the tunnel of NVMe-MI, with a length.
Bytes admin_request(uint8_t opcode, uint32_t length, uint32_t dword10) {
    Bytes body(67);
    body[0] = 0x10;
    body[3] = opcode;
    body[4] = 0x01;
    sim::put_le(body, 31, length, 4);
    sim::put_le(body, 43, dword10, 4);
    return body;
}

TEST(ServeMessages, DriveAnswersWithItsIntegrityCheckAtAnyLength) {
    Served served({});
    const uint8_t drive = served.eid_of("nvme0");
    SerialClient client(served.tty());
    const Bytes health = client.ask_drive(drive, bytes_of("080000010000000000000000000000"));
    EXPECT_EQ(to_hex(health).substr(0, 18), "848800000000000038");
    EXPECT_EQ(health.size(), 16U);

    const Bytes identify = client.ask_drive(drive, admin_request(0x06, 4096, 1));
    EXPECT_EQ(to_hex(identify).substr(0, 16), "8490000000000000");
    EXPECT_EQ(identify.size(), 20U + 4096);
    EXPECT_EQ(client.longest_packet, 68U);

    Bytes download = admin_request(0x11, 4096, 1023);
    for (size_t i = 0; i < 4096; ++i) {
        download.push_back(static_cast<uint8_t>(0x7A + i % 7));
    }
    EXPECT_EQ(to_hex(client.ask_drive(drive, download)), "84900000" + std::string(32, '0'));
    download.back() ^= 1;
    Bytes spoilt{0x84};
    sim::append(spoilt, download);
    sim::append_le32(spoilt, 0);
    client.send(drive, spoilt);
    EXPECT_EQ(to_hex(client.receive(300)), "") << "the check is wrong";
}

/// A firmware device that asks again after three tenths of a second.
const char* const kFirmwareBoard = R"({"name": "update", "buses": [{"bus": 1}], "devices": [
    {"name": "nic0", "type": "pldm", "bus": 1, "address": "0x40", "tid": 1, "firmware": {
        "active": "1.0", "retry_us": 300000,
        "components": [{"identifier": 1, "active": {"text": "1.0"}}]}}]})";

TEST(ServeMessages, DeviceUnderUpdateAsksAndRepeatsInRealTime) {
    const TemporaryFile board(kFirmwareBoard);
    Served served({"--board", board.path()});
    const uint8_t nic = served.eid_of("nic0");
    SerialClient client(served.tty());
    EXPECT_EQ(client.ask(nic, "01800510 20000000 0100 01 0000 01 01 41"),
              "01000510"
              "00000000");
    EXPECT_EQ(client.ask(nic, "01800513 05 0a00 0100 00 01000000 01 01 41"), "01000513000000");
    client.ask(nic, "01800514 0a00 0100 00 01000000 40000000 00000000 01 01 41");
    EXPECT_EQ(to_hex(client.receive()),
              "01800515"
              "00000000"
              "20000000");
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(to_hex(client.receive()),
              "01800515"
              "00000000"
              "20000000")
        << "repeated";
    EXPECT_GE(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(250));
    client.own_eid = 0x51;
    EXPECT_EQ(client.ask(nic, kGetTid), "010000020001") << "another is served meanwhile";
}

// ---- Clients that one would rather not have ----

/// Expects that the tool serves a new client, and sleeps while none is there.
void expect_alive(Served& served) {
    {
        SerialClient client(served.tty());
        client.read_raw(1 << 20, 100);  // what the one before is still owed
        // The flag that a half frame before lacks.
        client.write_raw(bytes_of("7e 7e 7e"));
        EXPECT_EQ(client.ask(9, kGetTid), "010000020007");
    }
    const double before = served.tool().processor_time();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(served.tool().processor_time() - before, 0.1) << "it is busy with nobody";
}

TEST_F(Serve, SleepsBeforeItsFirstClientAndBehindAnIdleOne) {
    Served served(own_board());
    const double before = served.tool().processor_time();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(served.tool().processor_time() - before, 0.1);
    SerialClient client(served.tty());
    EXPECT_EQ(client.ask(9, kGetTid), "010000020007");
    const double between = served.tool().processor_time();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(served.tool().processor_time() - between, 0.1);
}

TEST_F(Serve, SurvivesClientsThatLeaveInTheMiddle) {
    Served served(own_board());
    const Bytes frame = sim::frame_of(bytes_of("01 09 50 c8 01 80 00 02"));
    for (size_t size = 0; size <= frame.size(); ++size) {
        SerialClient client(served.tty());
        client.write_raw(ByteView(frame).first(size));
    }
    expect_alive(served);
}

TEST_F(Serve, SurvivesRubbish) {
    Served served(own_board());
    {
        SerialClient client(served.tty());
        unsigned noise = 1;
        for (int block = 0; block < 200; ++block) {
            Bytes rubbish(1000);
            for (uint8_t& byte : rubbish) {
                noise = noise * 1'103'515'245 + 12'345;
                byte = static_cast<uint8_t>(noise >> 16);
            }
            client.write_raw(rubbish);
        }
        // Frames of every count that hold no packet, and messages that never end.
        for (int count = 0; count < 256; ++count) {
            Bytes frame{0x7E, 1, static_cast<uint8_t>(count)};
            frame.resize(300, 0x55);
            client.write_raw(frame);
        }
    }
    expect_alive(served);
}

TEST_F(Serve, SurvivesMessagesWithoutEnd) {
    Served served(own_board());
    {
        SerialClient client(served.tty());
        Bytes packet{1, 9, 0x50, 0x88, 1};
        packet.resize(68, 0x55);
        for (int i = 0; i < 3000; ++i) {
            client.write_raw(sim::frame_of(packet));
            packet[3] = static_cast<uint8_t>(0x08 | (i + 1) % 4 << 4);
        }
    }
    expect_alive(served);
}

TEST_F(Serve, SurvivesAFloodThatNobodyReads) {
    Served served(own_board());
    const Bytes frame = sim::frame_of(bytes_of("01 09 50 c8 01 80 00 02"));
    {
        const SerialClient client(served.tty());
        Bytes many;
        for (int i = 0; i < 200; ++i) {
            sim::append(many, frame);
        }
        size_t taken = 0;
        // As much as it takes: in the end nothing more, because its answers go nowhere.
        for (int pauses = 0; pauses < 20 && taken < (8U << 20);) {
            const size_t now = client.write_raw(many);
            taken += now;
            if (now == 0) {
                ++pauses;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
        EXPECT_GT(taken, 64U << 10);
        EXPECT_LT(taken, 8U << 20);
        const double before = served.tool().processor_time();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        EXPECT_LT(served.tool().processor_time() - before, 0.1) << "it is busy with a full line";
    }
    expect_alive(served);
}

TEST_F(Serve, EndsByASignalWhileALineIsFull) {
    Served served(own_board());
    const SerialClient client(served.tty());
    const Bytes frame = sim::frame_of(bytes_of("01 09 50 c8 01 80 00 02"));
    for (int i = 0; i < 20'000; ++i) {
        client.write_raw(frame);
    }
    EXPECT_EQ(served.tool().end(SIGTERM).status, 0);
}

// ---- Captures and --verbose ----

TEST_F(Serve, CaptureHasThePacketsOfTheLine) {
    const TemporaryFile capture("");
    Served served({"--board", board_.path(), "--capture", capture.path()});
    SerialClient client(served.tty());
    EXPECT_EQ(client.ask(9, kGetTid), "010000020007");
    EXPECT_EQ(client.ask(0, "008002"), "00000200081000");
    EXPECT_EQ(served.tool().end(SIGTERM).status, 0);
    const std::string content = capture.content();
    const auto text = [](const std::string& hex) {
        const Bytes data = bytes_of(hex);
        return std::string(data.begin(), data.end());
    };
    EXPECT_TRUE(contains(content, "serial line to the simulated board"));
    EXPECT_TRUE(contains(content, "serial line (dev0), BMC to device"));
    EXPECT_TRUE(contains(content, "serial line (dev0), device to BMC"));
    EXPECT_TRUE(contains(content, "serial line (bridge), device to BMC"));
    // Linux cooked: MCTP, interface 258, no link-layer address; then the packet.
    const std::string head = "00fa0000 00000102 0122";
    EXPECT_TRUE(contains(content, text(head + "04 00 0000000000000000 010950c8 01800002")));
    EXPECT_TRUE(contains(content, text(head + "00 00 0000000000000000 015009c0 010000020007")));
    EXPECT_TRUE(contains(content, text(head + "04 00 0000000000000000 010050c8 008002")));
    EXPECT_TRUE(contains(content, text(head + "00 00 0000000000000000 015008c0 00000200081000")));
}

TEST_F(Serve, VerboseShowsEachPacket) {
    Served served({"--board", board_.path(), "--verbose"});
    SerialClient client(served.tty());
    client.ask(9, kGetTid);
    client.send(0x40, bytes_of(kGetTid));
    client.ask(9, kGetTid);
    const Outcome end = served.tool().end(SIGTERM);
    EXPECT_TRUE(contains(end.err, " > serial  01 09 50 c8  01 80 00 02\n")) << end.err;
    EXPECT_TRUE(contains(end.err, " < serial  01 50 09 c0  01 00 00 02 00 07\n")) << end.err;
    EXPECT_TRUE(contains(end.err, " > serial  01 40 50 c8  01 80 00 02  (lost)\n")) << end.err;
}

// ---- A given tty ----

/// A line whose other end the test has.
class OwnLine {
public:
    OwnLine() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
            throw std::runtime_error("no pseudo-terminal");
        }
        path_ = ptsname(master_);
        end_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~OwnLine() { hang_up(); }
    OwnLine(const OwnLine&) = delete;
    OwnLine& operator=(const OwnLine&) = delete;

    const std::string& path() const { return path_; }

    tcflag_t local_modes() const {
        termios settings{};
        EXPECT_EQ(tcgetattr(end_, &settings), 0);
        return settings.c_lflag;
    }

    std::string exchange(const std::string& frame, size_t answer_size) const {
        const Bytes out = bytes_of(frame);
        EXPECT_EQ(write(master_, out.data(), out.size()), static_cast<ssize_t>(out.size()));
        Bytes in(answer_size);
        size_t got = 0;
        pollfd line{.fd = master_, .events = POLLIN, .revents = 0};
        while (got < in.size() && poll(&line, 1, tool_test::kLongestWaitMs) > 0) {
            const ssize_t now = read(master_, in.data() + got, in.size() - got);
            got += now > 0 ? static_cast<size_t>(now) : 0;
        }
        in.resize(got);
        return to_hex(in);
    }

    void hang_up() {
        if (master_ >= 0) {
            close(end_);
            close(master_);
            master_ = -1;
        }
    }

private:
    int master_;
    int end_ = -1;
    std::string path_;
};

TEST_F(Serve, AGivenTtyIsServedAndGetsItsSettingsBack) {
    const OwnLine line;
    const tcflag_t before = line.local_modes();
    Served served({"--board", board_.path(), "--tty", line.path()});
    EXPECT_EQ(served.tty(), line.path());
    EXPECT_NE(line.local_modes(), before) << "raw";
    EXPECT_EQ(line.exchange("7e 01 07 01 08 50 c8 00 80 02 25 db 7e", 17),
              "7e010b015008c000000200081000fa017e");
    EXPECT_EQ(served.tool().end(SIGTERM).status, 0);
    EXPECT_EQ(line.local_modes(), before);
}

TEST_F(Serve, AGivenTtyThatHangsUpIsTheEnd) {
    OwnLine line;
    Served served({"--board", board_.path(), "--tty", line.path()});
    EXPECT_EQ(line.exchange("7e 01 07 01 08 50 c8 00 80 02 25 db 7e", 17).size(), 34U);
    line.hang_up();
    const Outcome end = served.tool().end();
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "sideband-sim: serve: " + line.path() + ": the other end is gone\n");
}

TEST_F(Serve, ATtyThatIsNoneIsRefused) {
    expect_error(run({"serve", "--tty", "/dev/null"}), 1,
                 "sideband-sim: serve: /dev/null: Inappropriate ioctl for device");
    expect_error(run({"serve", "--tty", "/nowhere/tty"}), 1,
                 "sideband-sim: serve: /nowhere/tty: No such file or directory");
}

TEST_F(Serve, EidsThatCannotBeAreRefused) {
    for (const char* eid : {"7", "255", "x", "-1"}) {
        const Outcome refused = run({"serve", "--eid", eid});
        EXPECT_EQ(refused.status, 2) << eid;
        EXPECT_EQ(refused.out, "") << eid;
    }
}

TEST_F(Serve, BusesGoWithoutALine) {
    const std::string why = "sideband-sim: serve: --i2c goes without --tty and --eid (try --help)";
    expect_error(run({"serve", "--i2c", "--tty", "/dev/null"}), 2, why);
    expect_error(run({"serve", "--i2c", "--eid", "9"}), 2, why);
}

/// Whoever may make devices would make them.
TEST_F(Serve, BusesNeedTheKernelsHelp) {
    if (access("/dev/cuse", F_OK) == 0 || access("/dev/i2c-2", F_OK) == 0) {
        GTEST_SKIP() << "this machine has /dev/cuse, or an I2C bus 2 of its own";
    }
    expect_error(run({"serve", "--i2c"}), 1,
                 "sideband-sim: serve: /dev/cuse: No such file or directory");
}

TEST(ServePage, ShowsTheTable) {
    RunningTool tool({"serve"});
    const std::string out = tool.printed_until(" nvme-mi\n");
    const std::string page(std::getenv("SIDEBAND_TOOL_PAGE"));
    std::ostringstream text;
    text << std::ifstream(page).rdbuf();
    EXPECT_TRUE(contains(text.str(), out.substr(out.find('\n')))) << out;
}

}  // namespace
