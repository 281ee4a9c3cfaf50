// SPDX-License-Identifier: Apache-2.0
// The command-line tool: opens the board, runs the command, ends with the exit status.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <string_view>

#include "tools/rooms.h"
#include "tools/shell/command_line.h"
#include "tools/shell/completion.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"
#include "tools/shell/time_limit.h"
#include "tools/shell/wire_watch.h"

namespace tool {
namespace {

/// Whether JSON is wanted must be known even if the command line turns out to be wrong.
bool json_wanted(int argc, char** argv) {
    return std::any_of(argv + 1, argv + argc,
                       [](const char* argument) { return std::string_view(argument) == "--json"; });
}

/// What a signal cuts short has no outcome to tell.
void run_until_signal(Context& context, const CommandLine& line) {
    try {
        line.run(context);
    } catch (const Failure& failure) {
        if (SignalWatch::signal() == 0) {
            context.report(failure);
        }
    } catch (const Interrupted&) {
    }
}

/// Runs the command; a capture is ended whatever came of it.
void run(Context& context, const CommandLine& line) {
    const WireWatch wire(context.port, line.verbose ? &context.output : nullptr);
    const SignalWatch signals;
    const TimeLimit limit(context.port, line.timeout);
    if (!line.capture.empty()) {
        context.port.start_capture(line.capture);
    }
    run_until_signal(context, line);
    if (!line.capture.empty()) {
        context.port.finish_capture();
    }
}

/// The fault in "KIND", "hostile:SEED", "hostile:SEED:RATE" or "{...}", as a board file has it.
std::string fault_json(const std::string& text) {
    constexpr std::string_view kHostile = "hostile:";
    if (text.starts_with('{')) {
        return text;
    }
    if (!text.starts_with(kHostile)) {
        return Json{{"kind", text}}.dump();
    }
    const std::string numbers = text.substr(kHostile.size());
    const size_t colon = numbers.find(':');
    std::string json = R"({"kind": "hostile", "seed": )" + numbers.substr(0, colon);
    if (colon != std::string::npos) {
        json += R"(, "rate": )" + numbers.substr(colon + 1);
    }
    return json + "}";
}

/// A fault of the command line: "ENDPOINT=FAULT".
void add_fault(Port& port, const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw Failure(ExitStatus::kUsage, text + ": a fault is given as ENDPOINT=KIND");
    }
    try {
        port.add_fault(text.substr(0, equals), fault_json(text.substr(equals + 1)));
    } catch (const Failure& failure) {
        throw Failure(ExitStatus::kUsage, failure.what());
    }
}

ExitStatus execute(Output& output, const CommandLine& line) {
    output.set_colours(static_cast<Output::Colours>(line.colours));
    if (line.verbose) {
        output.show_library_output();
    }
    Session::set_strict(line.strict ? MCTP_STRICT_ALL : 0);
    const std::unique_ptr<Port> port = Port::open(line.board);
    for (const std::string& fault : line.faults) {
        add_fault(*port, fault);
    }
    Context context{*port, output, line.command};
    try {
        run(context, line);
    } catch (const Failure& failure) {
        context.report(failure);
    }
    if (line.verbose) {
        for (const std::string& logged : port->log_lines()) {
            output.note("log: " + one_line(logged));
        }
    }
    return context.status;
}

ExitStatus run_command_line(int argc, char** argv, Output& output) {
    CommandLine line;
    try {
        if (const std::string text = hidden_command(argc, argv, rooms()); !text.empty()) {
            output.plain(text);
            return ExitStatus::kDone;
        }
        parse_command_line(argc, argv, rooms(), line);
        if (!line.text.empty()) {
            output.plain(line.text);
            return ExitStatus::kDone;
        }
        return execute(output, line);
    } catch (const Failure& failure) {
        output.error(line.command, failure);
        return failure.status();
    } catch (const std::exception& error) {
        output.error(line.command, Failure(ExitStatus::kFailed, error.what()));
        return ExitStatus::kFailed;
    }
}

/// A standard descriptor that is closed is none of what is opened next: it is taken by what can
/// neither be read nor written.
void keep_standard_descriptors() {
    int descriptor = 0;
    do {
        descriptor = open("/", O_PATH | O_CLOEXEC);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}

}  // namespace
}  // namespace tool

int main(int argc, char** argv) {
    using tool::ExitStatus;
    tool::keep_standard_descriptors();
    tool::Output output(tool::json_wanted(argc, argv));
    ExitStatus status = tool::run_command_line(argc, argv, output);
    if (!output.finish() && status == ExitStatus::kDone) {
        output.error("", tool::Failure(ExitStatus::kFailed, "standard output cannot be written"));
        status = ExitStatus::kFailed;
    }
    // Whoever sent it sees that the signal has ended the tool.
    if (const int signal = tool::SignalWatch::signal(); signal != 0) {
        std::raise(signal);
    }
    return static_cast<int>(status);
}
