// SPDX-License-Identifier: Apache-2.0
// Tests that the tool's documentation shows what the tool really prints.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/tools/tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::Outcome;
using tool_test::run_tool;

const std::string kPrompt = "$ sideband-sim ";

/// One command of a console block and what the page says that it prints, errors last.
struct Example {
    std::string command;
    std::string output;
};

std::vector<Example> examples_of(const std::string& path) {
    std::ifstream page(path);
    EXPECT_TRUE(page.is_open()) << path;
    std::vector<Example> examples;
    bool in_block = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("```")) {
            in_block = line == "```console";
        } else if (in_block && line.starts_with(kPrompt)) {
            examples.push_back({line.substr(kPrompt.size()), ""});
        } else if (in_block && !examples.empty()) {
            examples.back().output += line + "\n";
        }
    }
    return examples;
}

std::vector<std::string> split(const std::string& command) {
    std::istringstream stream(command);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

/// A line of three dots stands for lines that the page leaves out.
void expect_shown(const std::string& printed, const std::string& shown) {
    const std::string gap = "...\n";
    const size_t at = shown.find(gap);
    if (at == std::string::npos) {
        EXPECT_EQ(printed, shown);
        return;
    }
    const std::string head = shown.substr(0, at);
    const std::string tail = shown.substr(at + gap.size());
    EXPECT_EQ(printed.substr(0, head.size()), head);
    ASSERT_GE(printed.size(), head.size() + tail.size());
    EXPECT_EQ(printed.substr(printed.size() - tail.size()), tail);
}

/// The value of a variable that Meson sets for these tests.
std::string setting(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        throw std::runtime_error(std::string(name) + " is not set");
    }
    return value;
}

/// A folder with the files that the pages' commands name, made as the pages say; they run in it.
class PageFolder {
public:
    PageFolder() : before_(std::filesystem::current_path()) {
        std::string name = ::testing::TempDir() + "sideband-page-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder " + name);
        }
        folder_ = name;
        std::filesystem::current_path(folder_);
        const std::string command = "python3 '" + setting("SIDEBAND_MAKE_EXAMPLES") + "' .";
        if (std::system(command.c_str()) != 0) {
            throw std::runtime_error(command + " failed");
        }
    }
    ~PageFolder() {
        std::error_code ignored;
        std::filesystem::current_path(before_, ignored);
        std::filesystem::remove_all(folder_, ignored);
    }
    PageFolder(const PageFolder&) = delete;
    PageFolder& operator=(const PageFolder&) = delete;

private:
    std::filesystem::path before_;
    std::filesystem::path folder_;
};

void expect_real(const std::vector<Example>& examples) {
    for (const Example& example : examples) {
        SCOPED_TRACE(example.command);
        const Outcome run = run_tool(split(example.command));
        expect_shown(run.out + run.err, example.output);
    }
}

/// The page has an example of each.
constexpr const char* kCommands[] = {"demo",
                                     "scan",
                                     "mctp eid",
                                     "mctp uuid",
                                     "mctp routes",
                                     "raw",
                                     "pldm info",
                                     "pldm sensors",
                                     "pldm pdr list",
                                     "pldm pdr show",
                                     "pldm pdr dump",
                                     "pldm fru",
                                     "pldm fw-info",
                                     "pldm fw-update",
                                     "check",
                                     "pkg show",
                                     "pkg create",
                                     "ncsi discover",
                                     "ncsi link",
                                     "ncsi select",
                                     "ncsi deselect",
                                     "ncsi oem brcm-preboot get",
                                     "ncsi oem brcm-preboot set",
                                     "ncsi oem mlx-tlv get",
                                     "ncsi oem mlx-tlv set",
                                     "ncsi oem mlx-mac",
                                     "ncsi oem mlx-temp",
                                     "nvme health",
                                     "nvme identify controller",
                                     "nvme identify namespace",
                                     "nvme identify list",
                                     "nvme log smart",
                                     "nvme log firmware",
                                     "nvme log error",
                                     "nvme log sanitize",
                                     "nvme ds subsystem",
                                     "nvme ds port",
                                     "nvme ds controllers",
                                     "nvme ds controller",
                                     "nvme ds commands",
                                     "nvme config get",
                                     "nvme config set",
                                     "nvme vpd read",
                                     "nvme vpd write",
                                     "nvme feature get",
                                     "nvme feature set",
                                     "nvme lockdown",
                                     "nvme fw-download",
                                     "nvme fw-commit",
                                     "nvme reset",
                                     "nvme ns list",
                                     "nvme ns create",
                                     "nvme ns attach",
                                     "nvme ns detach",
                                     "nvme ns delete",
                                     "nvme format",
                                     "nvme sanitize",
                                     "metrics",
                                     "batch",
                                     "board check",
                                     "board dump"};

TEST(ToolPage, ShowsWhatTheToolPrints) {
    const PageFolder folder;
    const std::vector<Example> examples = examples_of(setting("SIDEBAND_TOOL_PAGE"));
    expect_real(examples);
    for (const char* command : kCommands) {
        const bool shown = std::any_of(
            examples.begin(), examples.end(),
            [command](const Example& example) { return contains(example.command, command); });
        EXPECT_TRUE(shown) << "the page shows no " << command;
    }
}

TEST(CheckPage, ShowsWhatTheToolPrints) {
    const std::vector<Example> examples = examples_of(setting("SIDEBAND_CHECK_PAGE"));
    EXPECT_GE(examples.size(), 2u);
    expect_real(examples);
}

/// The commands in the README's indented blocks, without their comments: those behind the one that
/// makes the files which they name.
std::vector<std::string> readme_commands() {
    std::ifstream page(setting("SIDEBAND_README"));
    std::vector<std::string> found;
    const std::string begin = "    sideband-sim ";
    bool files_are_made = false;
    for (std::string line; std::getline(page, line);) {
        files_are_made = files_are_made || line.starts_with("    scripts/make_examples.py . ");
        if (files_are_made && line.starts_with(begin)) {
            found.push_back(line.substr(begin.size(), line.find(" #") - begin.size()));
        }
    }
    return found;
}

TEST(Readme, CommandsSucceedBehindTheOneThatMakesTheirFiles) {
    const PageFolder folder;
    const std::vector<std::string> shown = readme_commands();
    EXPECT_GE(shown.size(), 10u);
    for (const std::string& command : shown) {
        SCOPED_TRACE(command);
        const Outcome run = run_tool(split(command));
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_NE(run.out, "");
    }
    EXPECT_TRUE(std::filesystem::file_size("demo.pcapng") > 0);
}

TEST(Readme, ShowsWhatTheToolPrints) {
    const std::vector<Example> examples = examples_of(setting("SIDEBAND_README"));
    EXPECT_GE(examples.size(), 2u);
    expect_real(examples);
}

}  // namespace
