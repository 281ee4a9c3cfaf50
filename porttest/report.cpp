// SPDX-License-Identifier: Apache-2.0
// How a judgement is told: line by line, or as one JSON document.
#include "porttest/report.h"

#include <algorithm>
#include <cstdio>

namespace porttest {

namespace {

const char* name_of(Outcome outcome) {
    switch (outcome) {
        case Outcome::kPassed:
            return "passed";
        case Outcome::kFailed:
            return "failed";
        case Outcome::kNotApplicable:
            return "not applicable";
    }
    return "";
}

long count(const std::vector<Judged>& judged, Outcome outcome) {
    return std::ranges::count_if(
        judged, [outcome](const Judged& each) { return each.verdict.outcome == outcome; });
}

/// A JSON string (RFC 8259, clause 7).
std::string quoted(const std::string& plain) {
    std::string out = "\"";
    for (const char each : plain) {
        const auto code = static_cast<unsigned char>(each);
        if (each == '"' || each == '\\') {
            out += std::string("\\") + each;
        } else if (code < 0x20 || code >= 0x7F) {
            out += text("\\u%04x", code);
        } else {
            out += each;
        }
    }
    return out + "\"";
}

void print_members(const char* group, const Rule& rule) {
    std::printf("\"name\": %s, \"group\": %s, \"needs\": %s, \"demand\": %s, \"look\": %s",
                quoted(rule.name).c_str(), quoted(group).c_str(), quoted(rule.needs).c_str(),
                quoted(rule.demand).c_str(), quoted(rule.look).c_str());
}

}  // namespace

void print_rule(const Judged& judged) {
    const Verdict& verdict = judged.verdict;
    switch (verdict.outcome) {
        case Outcome::kPassed:
            std::printf("passed  %s\n", judged.rule->name);
            break;
        case Outcome::kNotApplicable:
            std::printf("n/a     %s: %s\n", judged.rule->name, verdict.why.c_str());
            break;
        case Outcome::kFailed:
            std::printf("FAILED  %s: %s\n        demanded: %s\n        look at: %s\n",
                        judged.rule->name, verdict.why.c_str(), judged.rule->demand,
                        judged.rule->look);
            break;
    }
    std::fflush(stdout);
}

void print_totals(const std::vector<Judged>& judged) {
    std::printf("%ld passed, %ld failed, %ld not applicable\n", count(judged, Outcome::kPassed),
                count(judged, Outcome::kFailed), count(judged, Outcome::kNotApplicable));
}

void print_json(const Options& options, const std::vector<Judged>& judged) {
    std::printf("{\"port\": %s, \"passed\": %ld, \"failed\": %ld, \"not_applicable\": %ld,\n",
                quoted(options.port).c_str(), count(judged, Outcome::kPassed),
                count(judged, Outcome::kFailed), count(judged, Outcome::kNotApplicable));
    std::printf(" \"rules\": [");
    const char* separator = "\n";
    for (const Judged& each : judged) {
        std::printf("%s  {", separator);
        print_members(each.group, *each.rule);
        std::printf(", \"result\": %s, \"why\": %s}", quoted(name_of(each.verdict.outcome)).c_str(),
                    quoted(each.verdict.why).c_str());
        separator = ",\n";
    }
    std::printf("\n ]}\n");
}

void print_list(bool json) {
    const char* separator = "[\n";
    for (const Group& group : all_rules()) {
        for (const Rule& rule : group.rules) {
            if (json) {
                std::printf("%s  {", separator);
                print_members(group.name, rule);
                std::printf("}");
                separator = ",\n";
            } else {
                std::printf("%-22s %s\n", rule.name, rule.demand);
            }
        }
    }
    std::printf(json ? "\n]\n" : "");
}

bool any_failed(const std::vector<Judged>& judged) {
    return count(judged, Outcome::kFailed) != 0;
}

}  // namespace porttest
