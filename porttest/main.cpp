// SPDX-License-Identifier: Apache-2.0
// The judge of ports: checks from outside what sideband/platform.h demands of a platform library.
#include <algorithm>
#include <cstdio>

#include "porttest/report.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

int complain(const std::string& line) {
    std::fprintf(stderr, "sideband-porttest: %s\n", line.c_str());
    return kUsage;
}

bool is_rule(const std::string& name) {
    return std::ranges::any_of(porttest::all_rules(), [&](const porttest::Group& group) {
        return std::ranges::any_of(group.rules,
                                   [&](const porttest::Rule& rule) { return name == rule.name; });
    });
}

}  // namespace

int main(int count, char** arguments) {
    std::string error;
    const auto options = porttest::parse(count, arguments, error);
    if (!options) {
        return complain(error + "; --help tells the options");
    }
    if (options->help) {
        std::fputs(porttest::kUsage, stdout);
        return 0;
    }
    if (options->list) {
        porttest::print_list(options->json);
        return 0;
    }
    if (options->hold) {
        return porttest::hold_lock(*options);
    }
    for (const std::string& name : options->only) {
        if (!is_rule(name)) {
            return complain("no rule " + name + "; --list names them");
        }
    }
    if (const std::string trouble = porttest::try_port(*options); !trouble.empty()) {
        return complain((options->port.empty() ? "this program" : options->port) + ": " + trouble);
    }
    const auto judged = porttest::judge(*options, [&](const porttest::Judged& each) {
        if (!options->json) {
            porttest::print_rule(each);
        }
    });
    options->json ? porttest::print_json(*options, judged) : porttest::print_totals(judged);
    return porttest::any_failed(judged) ? kFailed : 0;
}
