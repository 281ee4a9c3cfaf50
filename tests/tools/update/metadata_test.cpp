// SPDX-License-Identifier: Apache-2.0
// Tests of the descriptions of packages: what is wrong with one is told with key and line.
#include <cstdlib>
#include <fstream>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::has_control;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::run_tool_for;
using tool_test::TemporaryFile;

/// A description without components, each member on a line of its own.
const char* const kGood = R"({
"PackageHeaderInformation": {
"PackageHeaderIdentifier": "F018878CCB7D49439800A02F059ACA02",
"PackageHeaderFormatVersion": 1,
"PackageReleaseDateTime": "17/03/2024 10:20:30",
"PackageVersionString": "all"
},
"FirmwareDeviceIdentificationArea": [{
"DeviceUpdateOptionFlags": [],
"ComponentImageSetVersionString": "set",
"ApplicableComponents": [0],
"Descriptors": [{
"DescriptorType": 1,
"DescriptorData": "01020304"
}]
}],
"ComponentImageInformationArea": [{
"ComponentClassification": 10,
"ComponentIdentifier": 1,
"ComponentOptions": [1],
"RequestedComponentActivationMethod": [5],
"ComponentVersionString": "one",
"ComponentComparisonStamp": "0x16290000"
}]
})";

class Metadata : public testing::Test {
protected:
    /// Makes a package of a description with one image.
    Outcome create(const std::string& description) const {
        const TemporaryFile file(description);
        Outcome made = run_tool_for(
            {"pkg", "create", out_.path(), "--metadata", file.path(), "--image", image_.path()},
            60);
        // The name of the file is another one each time.
        for (size_t at; (at = made.err.find(file.path())) != std::string::npos;) {
            made.err.replace(at, file.path().size(), "FILE");
        }
        return made;
    }

    /// The good description with a part of it exchanged.
    std::string with(const std::string& part, const std::string& other) const {
        std::string text = kGood;
        const size_t at = text.find(part);
        EXPECT_NE(at, std::string::npos) << part;
        return text.replace(at, part.size(), other);
    }

    void expect_refused(const std::string& part, const std::string& other, const std::string& why) {
        SCOPED_TRACE(other);
        expect_error(create(with(part, other)), 3, "sideband-sim: pkg create: FILE:" + why);
    }

    TemporaryFile out_{""};
    TemporaryFile image_{"image"};
};

TEST_F(Metadata, AGoodOneMakesAPackage) {
    const Outcome made = create(kGood);
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(made.err, "");
}

TEST_F(Metadata, WrongValuesAreToldWithKeyAndLine) {
    const std::string header = "PackageHeaderInformation.";
    const std::string record = "FirmwareDeviceIdentificationArea[0].";
    const std::string component = "ComponentImageInformationArea[0].";
    expect_refused("F018878C", "1244D264",
                   "3: " + header +
                       "PackageHeaderIdentifier: must be f018878ccb7d49439800a02f059aca02, header "
                       "format 1.0");
    expect_refused(
        "17/03/2024", "31/06/2024",
        "5: " + header + "PackageReleaseDateTime: must be a time such as 17/03/2024 10:20:30");
    expect_refused(
        "10:20:30", "10:20:60",
        "5: " + header + "PackageReleaseDateTime: must be a time such as 17/03/2024 10:20:30");
    expect_refused("\"all\"", "\"\"", "6: " + header + "PackageVersionString: must not be empty");
    expect_refused(
        "\"set\"", "\"" + std::string(256, 's') + "\"",
        "10: " + record + "ComponentImageSetVersionString: has 256 bytes, more than 255");
    expect_refused(
        "\"01020304\"", "\"0102\"",
        "14: " + record + "Descriptors[0].DescriptorData: has 2 bytes, IANA Enterprise ID has 4");
    expect_refused("[{\n\"DescriptorType\": 1,\n\"DescriptorData\": \"01020304\"\n}]", "[]",
                   "12: " + record + "Descriptors: must have 1 to 255 descriptors");
}

TEST_F(Metadata, ValuesOfAnotherKindAreToldWithTheirLine) {
    for (const char* part :
         {"\"F018878CCB7D49439800A02F059ACA02\"", "\"17/03/2024 10:20:30\"", "\"all\"", "\"set\"",
          "\"01020304\"", "\"one\"", "\"0x16290000\"", "[0]", "[1]", "[5]", "10,"}) {
        for (const char* other : {"null", "\"\\u001b[31m\"", "-1", "[[]]", "[4294967296]"}) {
            SCOPED_TRACE(std::string(part) + " " + other);
            const std::string comma = std::string(part).ends_with(',') ? "," : "";
            const std::string text = with(part, other + comma);
            const Outcome made = create(text);
            const std::string line =
                std::to_string(1 + std::count(kGood, std::string(kGood).find(part) + kGood, '\n'));
            // A text may be any text, if it is one of those.
            if (made.status != 0) {
                EXPECT_EQ(made.status, 3);
                EXPECT_TRUE(contains(made.err, "FILE:" + line + ": ")) << made.err;
                EXPECT_EQ(std::count(made.err.begin(), made.err.end(), '\n'), 1) << made.err;
                EXPECT_FALSE(has_control(made.err));
            } else {
                EXPECT_TRUE(contains(other, "u001b")) << "this is no value for it";
            }
        }
    }
}

TEST_F(Metadata, EveryKeyThatIsMissingIsTold) {
    for (const char* key :
         {"PackageHeaderInformation", "PackageHeaderIdentifier", "PackageHeaderFormatVersion",
          "PackageVersionString", "FirmwareDeviceIdentificationArea",
          "ComponentImageSetVersionString", "ApplicableComponents", "Descriptors", "DescriptorType",
          "DescriptorData", "ComponentImageInformationArea", "ComponentClassification",
          "ComponentIdentifier", "ComponentOptions", "RequestedComponentActivationMethod",
          "ComponentVersionString", "ComponentComparisonStamp"}) {
        SCOPED_TRACE(key);
        const Outcome made = create(with("\"" + std::string(key) + "\"", "\"Other\""));
        EXPECT_EQ(made.status, 3);
        EXPECT_TRUE(contains(made.err, "Other") || contains(made.err, key)) << made.err;
        EXPECT_EQ(std::count(made.err.begin(), made.err.end(), '\n'), 1) << made.err;
    }
}

TEST_F(Metadata, CutAnywhereItIsRefused) {
    const std::string good = kGood;
    for (size_t size = 0; size < good.size(); size += 7) {
        const Outcome made = create(good.substr(0, size));
        EXPECT_EQ(made.status, 3) << size;
        EXPECT_EQ(std::count(made.err.begin(), made.err.end(), '\n'), 1) << made.err;
    }
}

TEST_F(Metadata, FilesThatAreNone) {
    const auto of_file = [this](const std::string& path) {
        return run_tool_for({"pkg", "create", out_.path(), "--metadata", path}, 60);
    };
    expect_error(of_file("/nowhere"), 3,
                 "sideband-sim: pkg create: /nowhere: No such file or directory");
    expect_error(of_file("/"), 3, "sideband-sim: pkg create: /: Is a directory");
    expect_error(of_file("/dev/zero"), 3,
                 "sideband-sim: pkg create: /dev/zero: is not a regular file");
    const TemporaryFile huge(std::string((4U << 20) + 1, ' '));
    expect_error(of_file(huge.path()), 3,
                 "sideband-sim: pkg create: " + huge.path() + ": is longer than 4194304 bytes");
}

TEST_F(Metadata, MoreThanAHeaderHolds) {
    std::string descriptors;
    for (int i = 0; i < 255; ++i) {
        descriptors += std::string(i == 0 ? "" : ",") +
                       R"({"DescriptorType": 65535, "VendorDefinedDescriptorTitleString": "",
                           "VendorDefinedDescriptorData": ")" +
                       std::string(1000, 'a') + "\"}";
    }
    const Outcome made =
        create(with("{\n\"DescriptorType\": 1,\n\"DescriptorData\": \"01020304\"\n}", descriptors));
    expect_error(
        made, 3,
        "sideband-sim: pkg create: FILE: makes a package header of 129116 bytes, more than "
        "65535");
}

TEST_F(Metadata, TheTimeOfTheBuildStandsForAReleaseThatIsMissing) {
    setenv("SOURCE_DATE_EPOCH", "86400", 1);
    const Outcome made = create(with("\"PackageReleaseDateTime\": \"17/03/2024 10:20:30\",", ""));
    unsetenv("SOURCE_DATE_EPOCH");
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(out_.content().substr(19, 13), std::string("\0\0\0\0\0\0\0\0\x02\x01\xb2\x07\0", 13));
}

TEST_F(Metadata, ATimeOfTheBuildThatIsNoneIsRefused) {
    const std::string timeless = with("\"PackageReleaseDateTime\": \"17/03/2024 10:20:30\",", "");
    for (const char* wrong : {"", "abc", "1700000000x", " 1", "-1", "0x10", "253402300800",
                              "99999999999999999", "18446744073709551617"}) {
        SCOPED_TRACE(wrong);
        setenv("SOURCE_DATE_EPOCH", wrong, 1);
        expect_error(create(timeless), 3,
                     "sideband-sim: pkg create: FILE:2: PackageHeaderInformation: has no "
                     "PackageReleaseDateTime, and SOURCE_DATE_EPOCH is no number of seconds in "
                     "1970 to 9999");
        EXPECT_EQ(create(kGood).status, 0) << "it has a time";
    }
    setenv("SOURCE_DATE_EPOCH", "253402300799", 1);
    EXPECT_EQ(create(timeless).status, 0);
    EXPECT_EQ(out_.content().substr(19 + 8, 4), std::string("\x1f\x0c\x0f\x27", 4));
    unsetenv("SOURCE_DATE_EPOCH");
}

}  // namespace
