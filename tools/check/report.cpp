// SPDX-License-Identifier: Apache-2.0
// What came of the rules, for people and for programs.
#include "tools/check/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "tools/shell/text.h"

namespace tool::check {
namespace {

const char* outcome_text(Outcome outcome) {
    switch (outcome) {
        case Outcome::kPassed:
            return "passed";
        case Outcome::kFailed:
            return "failed";
        default:
            return "not applicable";
    }
}

Tone tone_of(Outcome outcome) {
    switch (outcome) {
        case Outcome::kPassed:
            return Tone::kGood;
        case Outcome::kFailed:
            return Tone::kBad;
        default:
            return Tone::kFaint;
    }
}

/// Longest message that is shown whole.
constexpr size_t kMostShown = 512;

std::string shown_bytes(std::span<const uint8_t> bytes) {
    if (bytes.size() <= kMostShown) {
        return hex(bytes);
    }
    return fmt::format("{}... ({} bytes)", hex(bytes.first(kMostShown)), bytes.size());
}

std::string response_text(const Exchange& exchange) {
    if (!exchange.response) {
        return "none";
    }
    return exchange.response->empty() ? "empty" : shown_bytes(*exchange.response);
}

/// What failed, a line each.
std::string evidence_text(const Result& result, const char* indent) {
    std::string text = fmt::format("{}expected  {}\n", indent, result.text);
    for (const Exchange& exchange : result.evidence) {
        text += fmt::format("{0}request   type 0x{1:02x}  {2}\n{0}response  {3}\n", indent,
                            exchange.type, shown_bytes(exchange.request), response_text(exchange));
        for (const SeenPacket& packet : exchange.packets) {
            if (!packet.sent) {
                text += fmt::format("{}packet    {}{}\n", indent, hex(packet.bytes),
                                    packet.pec_good ? "" : "  (bad PEC)");
            }
        }
    }
    return text;
}

/// Text as XML has it between tags and in attributes, in ASCII: nothing in it can end its place.
std::string xml(const std::string& text) {
    std::string out;
    for (const char character : text) {
        const auto byte = static_cast<uint8_t>(character);
        if (byte == '&' || byte == '<' || byte == '>' || byte == '"') {
            out += fmt::format("&#{};", byte);
        } else if (byte == '\n' || (byte >= 0x20 && byte < 0x7F)) {
            out += character;
        } else {
            out += fmt::format("\\x{:02x}", byte);
        }
    }
    return out;
}

Json exchange_json(const Exchange& exchange) {
    Json json{{"message_type", exchange.type}, {"request", hex(exchange.request)}};
    json["response"] = exchange.response ? Json(hex(*exchange.response)) : Json();
    Json packets = Json::array();
    for (const SeenPacket& packet : exchange.packets) {
        if (!packet.sent) {
            packets.push_back(hex(packet.bytes));
        }
    }
    json["packets"] = packets;
    return json;
}

Json result_json(const Result& result) {
    Json json{{"rule", result.rule->name},
              {"clause", result.rule->clause},
              {"outcome", outcome_text(result.outcome)}};
    if (result.outcome == Outcome::kNotApplicable) {
        json["why"] = result.text;
    }
    if (result.outcome == Outcome::kFailed) {
        json["expected"] = result.text;
        Json exchanges = Json::array();
        for (const Exchange& exchange : result.evidence) {
            exchanges.push_back(exchange_json(exchange));
        }
        json["exchanges"] = exchanges;
    }
    return json;
}

/// The part of a rule's name that its family shares.
std::string_view family_of(const Result& result) {
    const std::string_view name = result.rule->name;
    return name.substr(0, name.find('.'));
}

/// How many results at the beginning say the same of a whole family, that it does not apply; 0 if
/// they do not. Rules that were not wanted say nothing.
size_t family_left_out(std::span<const Result> results) {
    const auto same = [&](const Result& result) {
        return result.outcome == Outcome::kNotApplicable &&
               (result.rule->writes || result.text == results.front().text);
    };
    size_t size = 0;
    while (size < results.size() && family_of(results[size]) == family_of(results.front())) {
        if (!same(results[size++])) {
            return 0;
        }
    }
    return size;
}

std::string counts_text(std::span<const Result> results) {
    return fmt::format("{}: {} passed, {} failed, {} not applicable",
                       counted(results.size(), "rule"), count_of(results, Outcome::kPassed),
                       count_of(results, Outcome::kFailed),
                       count_of(results, Outcome::kNotApplicable));
}

}  // namespace

size_t count_of(std::span<const Result> results, Outcome outcome) {
    return static_cast<size_t>(std::ranges::count_if(
        results, [outcome](const Result& result) { return result.outcome == outcome; }));
}

Table report_table(std::span<const Result> results) {
    constexpr size_t kOutcome = 1;
    Table table({{"RULE"}, {"OUTCOME"}, {"WHY NOT"}});
    std::string_view family;
    for (size_t i = 0; i < results.size();) {
        const Result& result = results[i];
        const bool applies = result.outcome != Outcome::kNotApplicable;
        const bool begins = family_of(result) != std::exchange(family, family_of(result));
        const size_t left_out = begins ? family_left_out(results.subspan(i)) : 0;
        table.add(
            {left_out > 1 ? fmt::format("{}.* ({} rules)", family, left_out) : result.rule->name,
             outcome_text(result.outcome), applies ? "-" : result.text});
        table.tint(kOutcome, tone_of(result.outcome));
        i += left_out > 1 ? left_out : 1;
    }
    return table;
}

std::string report_text(std::span<const Result> results) {
    std::string failures;
    for (const Result& result : results) {
        if (result.outcome == Outcome::kFailed) {
            failures +=
                fmt::format("{} failed: {} ({})\n{}\n", result.rule->name, result.rule->text,
                            result.rule->clause, evidence_text(result, "  "));
        }
    }
    return "\n" + failures + counts_text(results) + "\n";
}

Json report_json(const std::string& endpoint, uint8_t eid, std::span<const Result> results) {
    Json rules = Json::array();
    for (const Result& result : results) {
        rules.push_back(result_json(result));
    }
    return {{"endpoint", endpoint},
            {"eid", eid},
            {"rules", rules},
            {"passed", count_of(results, Outcome::kPassed)},
            {"failed", count_of(results, Outcome::kFailed)},
            {"not_applicable", count_of(results, Outcome::kNotApplicable)}};
}

std::string report_junit(const std::string& endpoint, std::span<const Result> results) {
    std::string cases;
    for (const Result& result : results) {
        cases += fmt::format("    <testcase classname=\"{}\" name=\"{}\"", xml(endpoint),
                             xml(result.rule->name));
        if (result.outcome == Outcome::kPassed) {
            cases += "/>\n";
        } else if (result.outcome == Outcome::kFailed) {
            cases += fmt::format(
                ">\n      <failure message=\"{}\">{}</failure>\n    </testcase>\n",
                xml("expected " + result.text),
                xml(result.rule->clause + std::string("\n") + evidence_text(result, "")));
        } else {
            cases += fmt::format(">\n      <skipped message=\"{}\"/>\n    </testcase>\n",
                                 xml(result.text));
        }
    }
    const std::string counts = fmt::format("tests=\"{}\" failures=\"{}\" skipped=\"{}\"",
                                           results.size(), count_of(results, Outcome::kFailed),
                                           count_of(results, Outcome::kNotApplicable));
    return fmt::format(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites {0}>\n"
        "  <testsuite name=\"{1}\" {0}>\n{2}  </testsuite>\n</testsuites>\n",
        counts, xml(endpoint), cases);
}

std::string list_text(std::span<const Rule* const> rules) {
    Table table({{"RULE"}, {"CLAUSE"}, {"WRITES"}, {"WHAT MUST HOLD"}});
    for (const Rule* rule : rules) {
        table.add({rule->name, rule->clause, rule->writes ? "yes" : "-", rule->text});
    }
    return table.text();
}

Json list_json(std::span<const Rule* const> rules) {
    Json list = Json::array();
    for (const Rule* rule : rules) {
        list.push_back(Json{{"rule", rule->name},
                            {"clause", rule->clause},
                            {"writes", rule->writes},
                            {"text", rule->text}});
    }
    return {{"rules", list}};
}

}  // namespace tool::check
