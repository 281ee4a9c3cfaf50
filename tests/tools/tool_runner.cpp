// SPDX-License-Identifier: Apache-2.0
// Runs the tool as a user does and keeps what it printed and how it ended.
#include "tests/tools/tool_runner.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tool_test {

const char* const kTestBoard = R"({
  "name": "bench",
  "platform": {"pcie_open_fails": true},
  "buses": [{"bus": 1, "clock_hz": 400000}, {"bus": 2}],
  "devices": [
    {"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40", "tid": 7,
     "uuid": "00112233-4455-6677-8899-aabbccddeeff",
     "sensors": [
       {"kind": "numeric", "id": 12, "name": "inlet", "unit": "degC", "data_size": 2,
        "signed": true, "resolution": 0.5, "waveform": {"shape": "constant", "value": -21.5}},
       {"kind": "numeric", "id": 13, "name": "outlet", "unit": "degC",
        "operational_state": "disabled", "waveform": {"shape": "constant", "value": 1}},
       {"kind": "state", "id": 5, "name": "health", "composites": [
         {"state_set": 1, "states": [2]},
         {"state_set": 1, "states": [1], "operational_state": "failed"}]}
     ]},
    {"name": "rec0", "type": "replay", "bus": 2, "address": "0x30", "eid": 12,
     "exchanges": [
       {"message_type": 0, "request": "8003", "response": "000301"},
       {"message_type": 0, "request": "8005", "response": "000500020104"},
       {"message_type": 0, "request": "800a00", "response": "000a00010101102301030140"},
       {"message_type": 0, "request": "800a01", "response": "000a00ff010420c1020a020102"},
       {"message_type": 1, "request": "800002", "response": "00000201"},
       {"message_type": 1, "request": "800211010000", "response": "00021199"},
       {"message_type": 1, "request": "800211030000", "response": "00021100010000010001f6"},
       {"message_type": 1, "request": "800211040000", "response": "00021100050000010001feffffff"},
       {"message_type": 1, "request": "800211050000", "response": "000211"},
       {"message_type": 2, "request": "0001", "response": "aabb"}
     ]},
    {"name": "dead0", "type": "pldm", "bus": 2, "address": "0x50",
     "faults": [{"kind": "no_ack"}]}
  ]
})";

namespace {

/// An unnamed file that takes one output stream of a child.
class Sink {
public:
    Sink() : file_(std::tmpfile()) {
        if (file_ == nullptr) {
            throw std::runtime_error("no temporary file");
        }
    }
    ~Sink() { std::fclose(file_); }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    int descriptor() const { return fileno(file_); }

    std::string text() const {
        std::string text;
        std::rewind(file_);
        char block[4096];
        for (size_t got; (got = std::fread(block, 1, sizeof block, file_)) > 0;) {
            text.append(block, got);
        }
        return text;
    }

private:
    FILE* file_;
};

[[noreturn]] void become(const std::vector<std::string>& words, int in, int out, int err) {
    dup2(in < 0 ? open("/dev/null", O_RDONLY) : in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    // A shell in the background, or nohup, may have had them ignored.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, SIG_DFL);
    }
    // A tool that hangs is to fail the test, not to stop it.
    constexpr unsigned kLongestS = 240;
    alarm(kLongestS);
    std::vector<char*> pointers;
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
    _exit(127);
}

std::vector<std::string> words_of(const char* text) {
    std::istringstream stream(text == nullptr ? "" : text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

/// The tool, running.
class Child {
public:
    /// @param out  becomes its standard output and is closed here
    /// @param in   becomes its standard input; negative: there is none
    Child(const std::vector<std::string>& arguments, int out, int err, int in = -1) {
        const char* tool = std::getenv("SIDEBAND_TOOL");
        if (tool == nullptr) {
            throw std::runtime_error("SIDEBAND_TOOL does not name the tool");
        }
        std::vector<std::string> words = words_of(std::getenv("MESON_EXE_WRAPPER"));
        words.emplace_back(tool);
        words.insert(words.end(), arguments.begin(), arguments.end());
        id_ = fork();
        if (id_ == 0) {
            become(words, in, out, err);
        }
        close(out);
    }

    /// @return exit status; 128 and the signal's number if a signal ended it
    int wait() const {
        int status = 0;
        if (id_ < 0 || waitpid(id_, &status, 0) != id_) {
            throw std::runtime_error("the tool could not be started");
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    /// As wait(), but kills it if it takes longer.
    int wait_for(unsigned seconds) const {
        constexpr unsigned kNapsASecond = 50;
        for (unsigned i = 0; i < seconds * kNapsASecond; ++i) {
            siginfo_t ended{};
            if (waitid(P_PID, static_cast<id_t>(id_), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
                ended.si_pid == id_) {
                return wait();
            }
            usleep(1000000 / kNapsASecond);
        }
        kill(SIGKILL);
        return wait();
    }

    void kill(int signal) const { ::kill(id_, signal); }

    /// Seconds of processor time so far.
    double processor_time() const {
        clockid_t clock{};
        timespec taken{};
        if (clock_getcpuclockid(id_, &clock) != 0 || clock_gettime(clock, &taken) != 0) {
            throw std::runtime_error("the tool has ended");
        }
        return static_cast<double>(taken.tv_sec) + static_cast<double>(taken.tv_nsec) * 1e-9;
    }

private:
    pid_t id_ = -1;
};

/// A pseudo-terminal.
class Terminal {
public:
    Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
            throw std::runtime_error("no terminal");
        }
    }
    ~Terminal() { close(master_); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    int master() const { return master_; }
    /// The end that a program has. The caller closes it.
    int open_end() const { return open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC); }

private:
    int master_;
};

/// Reads until nobody writes any more, which on a terminal is an error, and closes.
template <typename Seen>
void read_all(int descriptor, std::string& text, Seen seen) {
    char block[4096];
    for (ssize_t got; (got = read(descriptor, block, sizeof block)) > 0;) {
        text.append(block, static_cast<size_t>(got));
        seen();
    }
    close(descriptor);
}

/// Reads all that a child prints, and sends it a signal as soon as a text has appeared.
std::string read_until(int descriptor, const std::string& text, const Child& child, int signal) {
    std::string printed;
    bool sent = false;
    read_all(descriptor, printed, [&] {
        if (!sent && contains(printed, text)) {
            child.kill(signal);
            sent = true;
        }
    });
    EXPECT_TRUE(sent) << "never printed: " << text;
    return printed;
}

}  // namespace

Outcome run_tool(const std::vector<std::string>& arguments, const char* out_path) {
    const Sink out;
    const Sink err;
    const Child child(arguments,
                      out_path == nullptr ? dup(out.descriptor()) : open(out_path, O_WRONLY),
                      err.descriptor());
    const int status = child.wait();
    return {.status = status, .out = out.text(), .err = err.text()};
}

Outcome run_tool_for(const std::vector<std::string>& arguments, unsigned seconds) {
    const Sink out;
    const Sink err;
    const Child child(arguments, dup(out.descriptor()), err.descriptor());
    const int status = child.wait_for(seconds);
    return {.status = status, .out = out.text(), .err = err.text()};
}

Outcome run_tool_until(const std::vector<std::string>& arguments, const std::string& text,
                       int signal) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    // The least that there is: a tool that prints more cannot have ended before the signal comes.
    fcntl(ends[0], F_SETPIPE_SZ, 4096);
    const Sink err;
    const Child child(arguments, ends[1], err.descriptor());
    const std::string out = read_until(ends[0], text, child, signal);
    const int status = child.wait();
    return {.status = status, .out = out, .err = err.text()};
}

Outcome run_tool_until_asked(const std::vector<std::string>& arguments, const std::string& text,
                             int signal) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const Terminal terminal;
    const int keyboard = terminal.open_end();
    const Sink out;
    const Child child(arguments, dup(out.descriptor()), ends[1], keyboard);
    close(ends[1]);
    const std::string err = read_until(ends[0], text, child, signal);
    const int status = child.wait();
    close(keyboard);
    return {.status = status, .out = out.text(), .err = err};
}

Outcome run_tool_on_terminal(const std::vector<std::string>& arguments, unsigned short columns) {
    const Terminal terminal;
    winsize size{};
    size.ws_col = columns;
    size.ws_row = 24;
    ioctl(terminal.master(), TIOCSWINSZ, &size);
    const Sink err;
    const Child child(arguments, terminal.open_end(), err.descriptor());
    std::string out;
    read_all(dup(terminal.master()), out, [] {});
    const int status = child.wait();
    return {.status = status, .out = out, .err = err.text()};
}

Outcome run_tool_typing(const std::vector<std::string>& arguments, const std::string& typed) {
    const Terminal terminal;
    const int keyboard = terminal.open_end();
    if (write(terminal.master(), typed.data(), typed.size()) !=
        static_cast<ssize_t>(typed.size())) {
        throw std::runtime_error("nothing can be typed");
    }
    const Sink out;
    const Sink err;
    const Child child(arguments, dup(out.descriptor()), err.descriptor(), keyboard);
    const int status = child.wait();
    close(keyboard);
    return {.status = status, .out = out.text(), .err = err.text()};
}

struct RunningTool::Process {
    Process(const std::vector<std::string>& arguments, int in, int out)
        : out(in), child(arguments, out, err.descriptor()) {}
    ~Process() { close(out); }

    int out;
    Sink err;
    Child child;
    std::string printed;
    bool ended = false;
};

RunningTool::RunningTool(const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    process_ = std::make_unique<Process>(arguments, ends[0], ends[1]);
}

RunningTool::~RunningTool() {
    if (!process_->ended) {
        end(SIGKILL);
    }
}

std::string RunningTool::printed_until(const std::string& text) {
    std::string& printed = process_->printed;
    char byte = 0;
    while (!printed.ends_with(text) && read(process_->out, &byte, 1) == 1) {
        printed += byte;
    }
    EXPECT_TRUE(printed.ends_with(text)) << "never printed: " << text << "\n" << printed;
    return printed;
}

double RunningTool::processor_time() const {
    return process_->child.processor_time();
}

Outcome RunningTool::end(int signal) {
    if (signal != 0) {
        process_->child.kill(signal);
    }
    read_all(dup(process_->out), process_->printed, [] {});
    process_->ended = true;
    const int status = process_->child.wait();
    return {.status = status, .out = process_->printed, .err = process_->err.text()};
}

Json one_document(const std::string& text) {
    Json document = Json::parse(text);
    EXPECT_FALSE(document.is_null()) << "not one JSON document:\n" << text;
    return document;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool has_control(const std::string& text) {
    for (size_t at = 0; at < text.size();) {
        const auto lead = static_cast<uint8_t>(text[at]);
        size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
        uint32_t point = size == 1 ? lead : lead & (0xFFU >> (size + 1));
        for (size_t i = 1; i < size; ++i) {
            const auto byte =
                at + i < text.size() ? static_cast<uint8_t>(text[at + i]) : uint8_t{0};
            point = (byte & 0xC0) == 0x80 ? point << 6 | (byte & 0x3FU) : 0xFFFFFFFF;
        }
        constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
        const bool whole =
            point >= kLeast[size] && point <= 0x10FFFF && point >> 11 != 0xD800 >> 11;
        if (!whole) {
            size = 1;
            point = lead;
        }
        const bool turns = point == 0x61C || point == 0x200E || point == 0x200F ||
                           (point >= 0x202A && point <= 0x202E) ||
                           (point >= 0x2066 && point <= 0x2069);
        const bool ends_line = point == 0x2028 || point == 0x2029;
        if ((point < 0x20 && point != '\n') || (point >= 0x7F && point < 0xA0) || turns ||
            ends_line) {
            return true;
        }
        at += size;
    }
    return false;
}

void expect_text(const Outcome& run, const std::string& text) {
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, text);
    EXPECT_EQ(run.err, "");
}

void expect_json(const Outcome& run, const char* text) {
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(one_document(run.out).dump(), parse_json(text).dump());
    EXPECT_EQ(run.err, "");
}

void expect_error(const Outcome& run, int status, const std::string& line) {
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.err, line + "\n");
    EXPECT_EQ(run.out, "");
}

TemporaryFile::TemporaryFile(const std::string& content) {
    std::string name = ::testing::TempDir() + "sideband-tool-XXXXXX";
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0) {
        throw std::runtime_error("no temporary file " + name);
    }
    close(descriptor);
    path_ = name;
    std::ofstream(path_, std::ios::binary) << content;
}

TemporaryFile::~TemporaryFile() {
    unlink(path_.c_str());
}

std::string TemporaryFile::content() const {
    std::ostringstream content;
    content << std::ifstream(path_, std::ios::binary).rdbuf();
    return content.str();
}

Outcome run_on(const std::string& board, std::vector<std::string> arguments) {
    const TemporaryFile file(board);
    arguments.insert(arguments.end(), {"--board", file.path()});
    return run_tool(arguments);
}

std::string replay_board(const Json& exchanges) {
    const Json device{{"name", "rec0"},    {"type", "replay"}, {"bus", 1},
                      {"address", "0x30"}, {"eid", 12},        {"exchanges", exchanges}};
    const Json board{{"name", "recorded"},
                     {"buses", Json::array({{{"bus", 1}}})},
                     {"devices", Json::array({device})}};
    return board.dump(1);
}

Outcome OwnBoard::run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--board", board_.path()});
    return run_tool(arguments);
}

}  // namespace tool_test
