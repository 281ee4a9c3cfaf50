// SPDX-License-Identifier: Apache-2.0
// The command check: a device against the standards, rule by rule.
#include <fcntl.h>
#include <fmt/format.h>

#include <cstdio>
#include <memory>

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

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// The file for the report, opened before the device is spoken to. A FIFO that nobody reads is not
/// waited for.
class ReportFile {
public:
    explicit ReportFile(std::string path) : path_(std::move(path)) {
        constexpr mode_t kReadWriteForAll = 0666;  // less the umask
        if (!path_.empty()) {
            const int descriptor = open(
                path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                kReadWriteForAll);
            file_.reset(descriptor >= 0 ? fdopen(descriptor, "wb") : nullptr);
            require(file_ != nullptr && fcntl(descriptor, F_SETFL, 0) == 0);
        }
    }

    void write(const std::string& text) const {
        if (!path_.empty()) {
            require(std::fwrite(text.data(), 1, text.size(), file_.get()) == text.size() &&
                    std::fflush(file_.get()) == 0);
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
    std::unique_ptr<std::FILE, FileCloser> file_;
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
