// SPDX-License-Identifier: Apache-2.0
// Texts of packages and devices on the operator's terminal: control characters are shown, not sent.
#include <gtest/gtest.h>
#include <sideband/output.h>

#include <cstring>
#include <utility>

#include "pldm/update/nic_fixture.h"

namespace {

using test::Bytes;
using test::Outcome;
using test::operator+;

/// Clears the terminal, writes a line of its own, sets its title, in C0 and in C1.
const std::string kText =
    "v\x1b[2J\nok\x7f\x9b"
    "1mz";
const std::string kShown = R"(v\x1b[2J\x0aok\x7f\x9b1mz)";
/// UTF-8 and ISO 8859-1, which are printable.
const std::string kPrintable = "R\xc3\xa4uber \xe4 100% \\x1b";

class FwPrintedTexts : public test::NicUpdateTest {
protected:
    static tool::Package package_with(const std::string& text) {
        tool::Package package = test::update_package(1);
        package.version = text + "1";
        tool::PackageRecord& record = package.records[0];
        record.version = text + "2";
        record.package_data = bytes_of(text + "3");
        record.descriptors = {{0x0000, {3, 0x15}, {}}};
        package.components[0].version = text + "4";
        return package;
    }

    static Bytes bytes_of(const std::string& text) { return Bytes(text.begin(), text.end()); }

    /// Parameters of a device whose active, pending and component versions these are.
    static Bytes parameters_with(const std::string& text) {
        const Bytes version = bytes_of(text);
        const auto length = static_cast<uint8_t>(version.size());
        Bytes all = test::hex("00 05 02 00 00 00 00 00 01 00");
        all = all + Bytes{1, length, 1, length} + version + version;
        Bytes entry(39);
        entry[0] = 10;
        entry[2] = 1;
        entry[10] = length;
        entry[24] = length;
        return all + entry + version + version;
    }

    /// Nothing but line ends steers the terminal.
    static void expect_tame(const std::string& text) {
        for (const char character : text) {
            const auto byte = static_cast<uint8_t>(character);
            EXPECT_TRUE(byte == '\n' || (byte >= 0x20 && byte < 0x7F)) << unsigned{byte};
        }
    }
};

TEST_F(FwPrintedTexts, OfAPackageHaveTheirControlCharactersShown) {
    ASSERT_EQ(parse(package_with(kText)), 0);
    expect_tame(out);
    EXPECT_TRUE(printed("\nver string: " + kShown + "1\n")) << out;
    EXPECT_TRUE(printed("\nComponent iamge st Ver String: " + kShown + "2\n")) << out;
    EXPECT_TRUE(printed("\nimage_version_string  = " + kShown + "2\n")) << out;
    EXPECT_TRUE(printed("\npackage_data          = " + kShown + "3\n")) << out;
    // What is kept has them as they are.
    EXPECT_EQ(ctx.package_version_string, kText + "1");
    EXPECT_EQ(ctx.records[0].image_version_string, kText + "2");
}

TEST_F(FwPrintedTexts, OfAComponentHaveTheirControlCharactersShown) {
    ASSERT_EQ(parse(package_with(kText)), 0);
    const Outcome outcome =
        test::run([&] { return pldm_parse_component_image(nullptr, ctx.component_images[0]); });
    expect_tame(outcome.out);
    EXPECT_TRUE(outcome.out.ends_with("\nver_string: " + kShown + "4\n")) << outcome.out;
}

TEST_F(FwPrintedTexts, ThatArePrintableStayAsTheyAre) {
    ASSERT_EQ(parse(package_with(kPrintable)), 0);
    EXPECT_TRUE(printed("\nver string: " + kPrintable + "1\n")) << out;
    EXPECT_TRUE(printed("\nComponent iamge st Ver String: " + kPrintable + "2\n")) << out;
    EXPECT_TRUE(printed("\nimage_version_string  = " + kPrintable + "2\n")) << out;
    EXPECT_TRUE(printed("\npackage_data          = " + kPrintable + "3\n")) << out;
}

// Unicode, table 3-7: what is behind E0, ED, F0 and F4 has bounds of its own.
TEST_F(FwPrintedTexts, InUtf8StayAsTheyAreAsFarAsItIsWellFormed) {
    constexpr std::pair<const char*, const char*> kCases[] = {
        {"\xed\x9f\xbf", "\xed\x9f\xbf"},             // U+D7FF, in front of the surrogates
        {"\xed\xa0\x80", "\xed\xa0\\x80"},            // a surrogate: three single bytes
        {"\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf"},     // U+10FFFF, the last character
        {"\xf4\x90\x80\x80", "\xf4\\x90\\x80\\x80"},  // behind it
        {"\xc2\xa0", "\xc2\xa0"},                     // U+00A0, behind the controls
        {"\xc2\x9f", "\\xc2\\x9f"},                   // U+009F, the last of them
    };
    for (const auto& [text, shown] : kCases) {
        ASSERT_EQ(parse(package_with(text)), 0);
        EXPECT_TRUE(printed(std::string("\nver string: ") + shown + "1\n")) << out;
    }
}

TEST_F(FwPrintedTexts, LedToAFunctionAreTheSame) {
    const tool::Package package = package_with(kText);
    ASSERT_EQ(parse(package), 0);
    const std::string printed_before = out;
    std::string taken;
    sideband_set_output(
        SIDEBAND_OUTLET_PRINTED,
        [](void* text, uint32_t outlet, const char* characters, size_t length) {
            EXPECT_EQ(outlet, uint32_t{SIDEBAND_OUTLET_PRINTED});
            static_cast<std::string*>(text)->append(characters, length);
        },
        &taken);
    EXPECT_EQ(parse(package), 0);
    sideband_set_output(0, nullptr, nullptr);
    EXPECT_EQ(taken, printed_before);
    EXPECT_EQ(out, "");
}

TEST_F(FwPrintedTexts, EndAtTheirFirstNulAndAreAsLongAsTheyAre) {
    tool::Package package = package_with("x");
    package.version = std::string("ab\0cd", 5);
    package.records[0].version.assign(255, '\x01');
    package.records[0].package_data = Bytes(70, '\n') + bytes_of(std::string(3000, 'p'));
    ASSERT_EQ(parse(package), 0);
    EXPECT_TRUE(printed("\nver string: ab\n")) << out;
    std::string shown;
    for (int i = 0; i < 255; i++) {
        shown += "\\x01";
    }
    EXPECT_TRUE(printed("\nimage_version_string  = " + shown + "\n"));
    shown.clear();
    for (int i = 0; i < 70; i++) {
        shown += "\\x0a";
    }
    EXPECT_TRUE(printed("\npackage_data          = " + shown + std::string(3000, 'p') + "\n"));
}

TEST_F(FwPrintedTexts, OfADeviceHaveTheirControlCharactersShown) {
    const Bytes response = parameters_with(kText);
    const Outcome outcome = test::run([&] {
        return pldm_parse_firmware_para(&ctx, response.data(),
                                        static_cast<int32_t>(response.size()));
    });
    EXPECT_EQ(outcome.result, 0);
    expect_tame(outcome.out);
    for (const char* line : {"\nactive component image string : ",
                             "\npending component image string : ", "\nactive component        "}) {
        EXPECT_NE(outcome.out.find(line + kShown + "\n"), std::string::npos) << outcome.out;
    }
}

TEST_F(FwPrintedTexts, OfAQueryHaveTheirControlCharactersShown) {
    write_file(tool::build_package(package_with(kText)));
    device.usual[0x02] = test::to_hex(parameters_with(kText));
    const Outcome outcome = update(PLDM_FW_FLAG_QUERY | PLDM_FW_FLAG_SHOW_IMAGE);
    expect_tame(outcome.out);
    EXPECT_TRUE(outcome.out.ends_with("FD active component version : " + kShown +
                                      "\nFD pending component version : " + kShown +
                                      "\nImage component version : " + kShown + "1\n"))
        << outcome.out;
}

TEST_F(FwPrintedTexts, OfARecordThatIsRemarkedUponHaveTheirControlCharactersShown) {
    tool::Package package = package_with(kText);
    package.records.push_back(package.records[0]);
    ASSERT_EQ(parse(package), 0);
    ctx.record_index = 1;
    device.usual[0x10] = "00 05 10 8a";
    const Outcome outcome = test::run([&] { return pldm_request_firmware_update(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    expect_tame(outcome.out);
    EXPECT_NE(outcome.out.find("\ncomponent_image_set_ver_string = " + kShown + "2\n"),
              std::string::npos)
        << outcome.out;
}

}  // namespace
