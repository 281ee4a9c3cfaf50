// SPDX-License-Identifier: Apache-2.0
// The command check: a device against the standards, rule by rule.
#include <fmt/format.h>

#include <fstream>

#include "tools/check/commands.h"
#include "tools/check/device.h"
#include "tools/check/report.h"
#include "tools/check/rules.h"
#include "tools/check/session_channel.h"
#include "tools/shell/endpoint_name.h"

namespace tool {
namespace {

/// Sessions in between put up with everything, so that the rules see what comes.
class LaxSessions {
public:
    LaxSessions() : before_(Session::strict()) { Session::set_strict(0); }
    ~LaxSessions() { Session::set_strict(before_); }
    LaxSessions(const LaxSessions&) = delete;
    LaxSessions& operator=(const LaxSessions&) = delete;

private:
    uint32_t before_;
};

/// The file for the report, opened before the device is spoken to.
class ReportFile {
public:
    explicit ReportFile(std::string path) : path_(std::move(path)) {
        if (!path_.empty()) {
            file_.open(path_, std::ios::binary | std::ios::trunc);
            require(file_.is_open());
        }
    }

    void write(const std::string& text) {
        if (!path_.empty()) {
            file_ << text << std::flush;
            require(file_.good());
        }
    }

private:
    void require(bool works) const {
        if (!works) {
            throw Failure(ExitStatus::kFailed,
                          fmt::format("{}: the report cannot be written", path_));
        }
    }

    std::string path_;
    std::ofstream file_;
};

}  // namespace

void run_check(Context& context, const CheckWish& wish) {
    const std::vector<const check::Rule*> rules = check::rules_named(wish.rule);
    if (rules.empty()) {
        throw Failure(ExitStatus::kUsage,
                      fmt::format("{}: no rule has a name that begins so; see --list", wish.rule));
    }
    if (wish.list) {
        context.output.text(check::list_text(rules));
        context.output.document(check::list_json(rules));
        return;
    }
    if (wish.endpoint.empty()) {
        throw Failure(ExitStatus::kUsage, "ENDPOINT is required (try --help)");
    }
    const LaxSessions lax;
    Session session(find_endpoint(context.port, wish.endpoint));
    ReportFile report(wish.junit);
    session.discover();
    check::SessionChannel channel(context.port, session);
    check::Device device(channel);
    const std::vector<check::Result> results = check::judge(device, rules, wish.write);
    context.output.table(check::report_table(results));
    context.output.text(check::report_text(results));
    context.output.document(check::report_json(wish.endpoint, session.eid(), results));
    report.write(check::report_junit(wish.endpoint, results));
    if (check::count_of(results, check::Outcome::kFailed) != 0) {
        context.status = ExitStatus::kFailed;
    }
}

}  // namespace tool
