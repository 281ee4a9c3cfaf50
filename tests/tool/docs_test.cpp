// SPDX-License-Identifier: Apache-2.0
// Tests that the tool's documentation shows what the tool really prints.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::Outcome;
using tool_test::run_tool;

const std::string prompt = "$ sideband-sim ";

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
        } else if (in_block && line.starts_with(prompt)) {
            examples.push_back({line.substr(prompt.size()), ""});
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

TEST(ToolPage, ShowsWhatTheToolPrints) {
    const char* path = std::getenv("SIDEBAND_TOOL_PAGE");
    ASSERT_NE(path, nullptr);
    const std::vector<Example> examples = examples_of(path);
    for (const Example& example : examples) {
        SCOPED_TRACE(example.command);
        const Outcome run = run_tool(split(example.command));
        expect_shown(run.out + run.err, example.output);
    }
    for (const char* command :
         {"demo", "scan", "mctp eid", "mctp uuid", "mctp routes", "raw", "pldm info",
          "pldm sensors", "pldm pdr list", "pldm pdr show", "pldm pdr dump", "pldm fru"}) {
        const bool shown = std::any_of(
            examples.begin(), examples.end(),
            [command](const Example& example) { return contains(example.command, command); });
        EXPECT_TRUE(shown) << "the page shows no " << command;
    }
}

}  // namespace
