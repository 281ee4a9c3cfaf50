// SPDX-License-Identifier: Apache-2.0
// The platform interface of a Linux machine without its locks and sockets: power, shell, logs,
// progress, cards, records.
#include <sideband-linux/linux.h>
#include <sideband/mctp.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "machine_test.h"

namespace {

struct LoggedLine {
    int priority;
    std::string text;
};
std::vector<LoggedLine> system_log;

}  // namespace

/// Stands in front of libc's.
extern "C" void syslog(int priority, const char* format, ...) {
    char line[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    system_log.push_back({priority, line});
}

namespace {

using machine::PowerSource;

class LinuxPort : public machine_test::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        system_log.clear();
    }
    void use_power(PowerSource source) {
        machine::Board described = board();
        described.power = std::move(source);
        machine::use(std::move(described));
    }
};

uint8_t power_register() {
    uint8_t value = 0;
    EXPECT_EQ(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, &value), 0);
    return value;
}

TEST_F(LinuxPort, PowerIsOnWhereTheBoardSaysSo) {
    use_power({});
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 1);
    EXPECT_EQ(power_register(), 1);
}

TEST_F(LinuxPort, PowerComesFromAFile) {
    const std::string file = folder.at("power");
    use_power({.kind = PowerSource::Kind::kFile, .text = file, .on = "1"});
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0) << "no file";
    machine_test::write_file(file, "1\n");
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 1);
    EXPECT_EQ(power_register(), 1);
    machine_test::write_file(file, "10\n");
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
    machine_test::write_file(file, "");
    EXPECT_EQ(power_register(), 0);
}

TEST_F(LinuxPort, PowerComesFromACommand) {
    const std::string file = folder.at("on");
    use_power({.kind = PowerSource::Kind::kCommand,
               .text = "echo noise; echo noise >&2; test -e '" + file + "'",
               .on = ""});
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
    machine_test::write_file(file, "");
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0) << "what it said holds for a second";
    std::this_thread::sleep_for(machine::Power::kCommandHolds);
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(LinuxPort, ACommandThatIsKilledMeansOff) {
    use_power({.kind = PowerSource::Kind::kCommand, .text = "kill -9 $$", .on = ""});
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
}

TEST_F(LinuxPort, ACommandThatHangsIsKilledAndMeansOff) {
    const std::string file = folder.at("survived");
    use_power({.kind = PowerSource::Kind::kCommand,
               .text = "(sleep 5; echo > '" + file + "') & sleep 100",
               .on = ""});
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_GE(took, machine::Power::kCommandLimit);
    EXPECT_LT(took, 10 * machine::Power::kCommandLimit);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_FALSE(std::filesystem::exists(file)) << "what it had started is gone too";
}

// The kernel forgets how a child ended then.
TEST_F(LinuxPort, ACommandOfAProcessThatIgnoresItsChildrenMeansOff) {
    use_power({.kind = PowerSource::Kind::kCommand, .text = "true", .on = ""});
    struct sigaction ignored {};
    struct sigaction before {};
    ignored.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGCHLD, &ignored, &before), 0);
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
    EXPECT_EQ(run_shellcmd("true"), -1);
    sigaction(SIGCHLD, &before, nullptr);
    const std::string line =
        "sh: how it ended is not known: this process ignores SIGCHLD, or reaps all";
    EXPECT_EQ(console, (std::vector<std::string>{line, line}));
}

TEST_F(LinuxPort, OtherRegistersAreNotRead) {
    use_power({});
    uint8_t value = 7;
    EXPECT_NE(_PltGPIO_RegRead(0x1000, 0, 0, &value), 0);
    EXPECT_NE(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 1, 0, &value), 0);
    EXPECT_NE(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 1, &value), 0);
    EXPECT_NE(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, nullptr), 0);
    EXPECT_EQ(value, 7);
}

TEST_F(LinuxPort, WithoutABoardPowerIsOff) {
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
    EXPECT_EQ(GetS5stByPwrConfig(), 1);
    uint8_t value = 0;
    EXPECT_NE(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, &value), 0);
}

TEST_F(LinuxPort, TheRecordsAreThoseOfTheBoard) {
    machine::Board described = board();
    described.standby_option = 1;
    described.standby_override = 2;
    described.standby_devices = true;
    described.policy_off = true;
    described.identifier = PLT_IDENTIFIER_TURIN;
    described.mpio_state = 30;
    described.bmc_address = 0x24;
    described.devices.push_back({.name = "a", .way = machine::Device::Way::kMctp, .net = 1});
    described.devices.push_back({.name = "b", .bus = 5, .address = 0x60});
    machine::use(described);
    EXPECT_EQ(platform.flags, PLT_FLAG_STANDBY_DEVICES);
    EXPECT_EQ(platform.identifier, PLT_IDENTIFIER_TURIN);
    EXPECT_EQ(platform.standby_option, 1);
    EXPECT_EQ(platform.default_i2c_channel, 5);
    EXPECT_EQ(at_p_St_GlobalVar->standby_override, 2);
    EXPECT_EQ(at_p_St_GlobalSecVar->mpio_state, 30U);
    EXPECT_EQ(GetS5stByPwrConfig(), 1);
    uint8_t address = 0x20;
    EXPECT_EQ(GetBMCCtrAdd(&address), 0);
    EXPECT_EQ(address, 0x24);
    // Two words are shared, and belong to whoever has made the file.
    if (machine::in_use()->records.shared()) {
        described.mpio_state = 31;
        described.standby_override = 3;
        machine::use(described);
    }
    EXPECT_EQ(at_p_St_GlobalSecVar->mpio_state, 30U);
    EXPECT_EQ(at_p_St_GlobalVar->standby_override, 2);
}

TEST_F(LinuxPort, ParametersAreThoseOfTheBoard) {
    machine::Board described = board();
    described.bmc_eid = 10;
    machine::use(described);
    plt_parameters parameters{};
    EXPECT_NE(GlobalParaInit(&parameters), 0);
    EXPECT_EQ(parameters.bmc_eid, 10);
    EXPECT_EQ(parameters.i2c_channel, 0);
    EXPECT_EQ(GlobalParaInit(nullptr), 0);
}

TEST_F(LinuxPort, ServicesOpenABoardByItsFile) {
    const std::string file = folder.at("board.json");
    machine_test::write_file(file, "{\"name\": \"b\", \"run_folder\": \"" + folder.at("run") +
                                       "\", \"bmc\": {\"eid\": 11}}");
    EXPECT_EQ(sideband_linux_open(file.c_str()), 0);
    plt_parameters parameters{};
    EXPECT_NE(GlobalParaInit(&parameters), 0);
    EXPECT_EQ(parameters.bmc_eid, 11);

    machine_test::write_file(file, "{\"name\": \"b\",\n \"bcm\": {}}");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(sideband_linux_open(file.c_str()), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              file + ":2: bcm: no such key; did you mean bmc?\n");
    EXPECT_NE(machine::in_use(), nullptr) << "the board before stays";
    sideband_linux_close();
    EXPECT_EQ(machine::in_use(), nullptr);
}

TEST_F(LinuxPort, TheSystemLogGetsLinesWithoutTheirEnds) {
    ipmi_syslog("%s is %d\n\n", "seven", 7);
    ipmi_syslog("%%n%s", "%n");
    errno = ENOENT;
    const std::string with_errno = "it: %m\n";
    ipmi_syslog(with_errno.c_str(), 0);
    EXPECT_EQ(errno, ENOENT);
    ipmi_syslog("%s", std::string(5000, 'x').c_str());
    ASSERT_EQ(system_log.size(), 4U);
    EXPECT_EQ(system_log[0].text, "seven is 7");
    EXPECT_EQ(system_log[0].priority, LOG_DAEMON | LOG_INFO);
    EXPECT_EQ(system_log[1].text, "%n%n");
    EXPECT_EQ(system_log[2].text, "it: No such file or directory");
    EXPECT_EQ(system_log[3].text, std::string(1023, 'x'));
}

TEST_F(LinuxPort, ConsoleLinesGoToStandardError) {
    machine::lead_console({});
    ::testing::internal::CaptureStderr();
    console_log("line %d\n", 1);
    console_log("line %d", 2);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "line 1\nline 2\n");
}

TEST_F(LinuxPort, ProgressStandsInAFile) {
    machine::use(board());
    const std::string file = folder.at("run/task-7");
    TaskServiceUpdateTaskPercentage(7, 10);
    EXPECT_EQ(machine_test::content_of(file), "10\n");
    TaskServiceUpdateTaskPercentage(7, 100);
    TaskServiceUpdateTaskPercentage(7, 9);
    EXPECT_EQ(machine_test::content_of(file), "9\n");
    EXPECT_FALSE(std::filesystem::exists(folder.at("run/task-8")));
    size_t files = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(folder.at("run"))) {
        ++files;
    }
    EXPECT_EQ(files, 2U) << "the locks and the task, and no other";
}

TEST_F(LinuxPort, ProgressFollowsNoLink) {
    machine::use(board());
    const std::string file = folder.at("run/task-7");
    const std::string fresh = file + "." + std::to_string(getpid());
    const std::string victim = folder.at("victim");
    machine_test::write_file(victim, "mine");
    std::filesystem::create_symlink(victim, fresh);
    TaskServiceUpdateTaskPercentage(7, 10);
    EXPECT_EQ(machine_test::content_of(file), "10\n");
    EXPECT_EQ(machine_test::content_of(victim), "mine");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(fresh)));
    ASSERT_EQ(mkfifo(fresh.c_str(), 0600), 0);
    TaskServiceUpdateTaskPercentage(7, 15);
    EXPECT_EQ(machine_test::content_of(file), "15\n") << "nobody waits for a reader";
    std::filesystem::remove(file);
    std::filesystem::create_symlink(victim, file);
    TaskServiceUpdateTaskPercentage(7, 20);
    EXPECT_FALSE(std::filesystem::is_symlink(file)) << "replaced, not written through";
    EXPECT_EQ(machine_test::content_of(file), "20\n");
    EXPECT_EQ(machine_test::content_of(victim), "mine");
}

TEST_F(LinuxPort, ProgressWithoutItsFolderIsLost) {
    machine_test::write_file(folder.at("run"), "a file");
    machine::use(board());
    TaskServiceUpdateTaskPercentage(7, 10);
    EXPECT_EQ(machine_test::content_of(folder.at("run")), "a file");
    machine::use_none();
    TaskServiceUpdateTaskPercentage(7, 10);
}

TEST_F(LinuxPort, TheShellRunsALine) {
    EXPECT_EQ(run_shellcmd(("echo some > '" + folder.at("out") + "'; exit 3").c_str()), 3);
    EXPECT_EQ(machine_test::content_of(folder.at("out")), "some\n");
    EXPECT_EQ(run_shellcmd("kill -9 $$"), 128 + 9);
    EXPECT_EQ(run_shellcmd(nullptr), -1);
}

class LinuxCards : public machine_test::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        machine::Board described = board();
        machine::Device nic{
            .name = "nic0", .way = machine::Device::Way::kMctp, .net = 3, .eid = 21};
        nic.read_timeout_ms = 700;
        nic.card = machine::Card{.bus = 0x41, .device = 2, .vendor_id = 0x15B3};
        described.devices.push_back(nic);
        machine::Device gpu{.name = "gpu0", .bus = 4, .address = 0x9E, .software_pec = true};
        gpu.unit_size = 64;
        gpu.i2c_delay_us = 500;
        gpu.read_timeout_ms = 300;
        gpu.card = machine::Card{.bus = 0x42, .device = 0, .vendor_id = 0x8086};
        described.devices.push_back(gpu);
        machine::use(std::move(described));
    }

    static plt_card_info card_at(uint8_t bus, uint8_t device) {
        plt_card_info card{};
        card.bus = bus;
        card.device = device;
        EXPECT_EQ(PCIEDeviceMux(bus, device, &card), 0);
        return card;
    }

    static void expect_behind_the_kernel(const mctp_ctx& ctx) {
        EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_PCIE);
        EXPECT_EQ(ctx.dest_eid, 21);
        EXPECT_EQ(ctx.skip_discovery, 1);
        EXPECT_EQ(ctx.pcie_param, 3U << 16 | 700);
    }
};

TEST_F(LinuxCards, BehindTheKernelTheEidIsKnown) {
    const plt_card_info card = card_at(0x41, 2);
    mctp_ctx ctx{};
    MCTP_binding_PCIE(&ctx, 100, &card);
    expect_behind_the_kernel(ctx);
    EXPECT_EQ(ctx.pcie_bdf[0], 0x41);
    EXPECT_EQ(ctx.pcie_bdf[1], 2);
}

TEST_F(LinuxCards, OnABusTheyHaveItsSettings) {
    const plt_card_info card = card_at(0x42, 0);
    EXPECT_EQ(card.i2c_channel, 4);
    EXPECT_EQ(card.slave_addr, 0x9E);
    mctp_ctx ctx{};
    MCTP_binding_SMBUS(&ctx, 206, &card);
    EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_SL8_SMBUS);
    EXPECT_EQ(ctx.bus, 4);
    EXPECT_EQ(ctx.slave_addr, 0x9E);
    EXPECT_EQ(ctx.unit_size, 64);
    EXPECT_EQ(ctx.i2c_delay_us, 500U);
    EXPECT_EQ(ctx.route, 300U);
    EXPECT_EQ(ctx.dest_eid, 0);
    EXPECT_EQ(ctx.skip_discovery, 0);
}

TEST_F(LinuxCards, OnBusZeroAreThere) {
    machine::Board described = machine::in_use()->board;
    machine::Device zero{.name = "zero", .bus = 0, .address = 0x64};
    zero.card = machine::Card{.bus = 0x43, .device = 1, .vendor_id = 0x15B3};
    described.devices.push_back(zero);
    machine::use(described);
    EXPECT_EQ(platform.default_i2c_channel, 4) << "that of the first device on a bus";
    const plt_card_info card = card_at(0x43, 1);
    mctp_ctx ctx{};
    MCTP_binding_SMBUS(&ctx, 206, &card);
    EXPECT_EQ(ctx.bus, 0);
    EXPECT_EQ(ctx.slave_addr, 0x64);
}

// Its owner may call it an SMBus card: the kernel reaches it all the same, over whatever bus.
TEST_F(LinuxCards, BehindTheKernelAreReachedThereWhateverTheyAreSetUpFor) {
    const plt_card_info card = card_at(0x41, 2);
    mctp_ctx ctx{};
    MCTP_binding_SMBUS(&ctx, 206, &card);
    expect_behind_the_kernel(ctx);
}

TEST_F(LinuxCards, ThatNobodyDescribesAreNotFound) {
    plt_card_info card{};
    EXPECT_EQ(PCIEDeviceMux(0x50, 0, &card), -ENODEV);
    EXPECT_EQ(PCIEDeviceMux(0x41, 2, nullptr), -ENODEV);
    mctp_ctx ctx{};
    MCTP_binding_PCIE(&ctx, 100, &card);
    EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_PCIE);
    EXPECT_EQ(ctx.skip_discovery, 0);
    machine::use_none();
    EXPECT_EQ(PCIEDeviceMux(0x41, 2, &card), -ENODEV);
}

// SMBus 3.2, clause 6.4.1: x^8 + x^2 + x + 1, from 0.
TEST(LinuxCrc, IsThatOfSmbus) {
    const uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(CRC8Gen(digits, sizeof digits), 0xF4);
    EXPECT_EQ(CRC8Gen(digits, 0), 0);
    EXPECT_EQ(CRC8Gen(nullptr, 4), 0);
}

}  // namespace
