// SPDX-License-Identifier: Apache-2.0
// The command check: a device against the standards, rule by rule.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>

#include "tools/check/commands.h"
#include "tools/check/device.h"
#include "tools/check/report.h"
#include "tools/check/rules.h"
#include "tools/check/session_channel.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/new_file.h"

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

/// The file for the report, made before the device is spoken to: until there is a report, the one
/// of another run stays. What is no file, a FIFO or a device, is written to as it is, and a FIFO
/// that nobody reads is not waited for.
class ReportFile {
public:
    explicit ReportFile(std::string path) : path_(std::move(path)) {
        struct stat status;
        if (path_.empty()) {
            return;
        }
        const bool absent = lstat(path_.c_str(), &status) != 0;
        if (absent || S_ISREG(status.st_mode)) {
            new_file_.emplace(path_);
            require(new_file_->is_open());
        } else {
            const int descriptor =
                open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
            file_.reset(descriptor >= 0 ? fdopen(descriptor, "wb") : nullptr);
            require(file_ != nullptr && fcntl(descriptor, F_SETFL, 0) == 0);
        }
    }

    void write(const std::string& text) {
        if (new_file_) {
            require(new_file_->write(text.data(), text.size()) && new_file_->finish());
        } else if (file_ != nullptr) {
            // Of a file behind a symbolic link; nothing else has a length.
            const bool cut = ftruncate(fileno(file_.get()), 0) == 0 || errno == EINVAL;
            require(cut && std::fwrite(text.data(), 1, text.size(), file_.get()) == text.size() &&
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
    std::optional<NewFile> new_file_;
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
