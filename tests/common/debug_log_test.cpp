// SPDX-License-Identifier: Apache-2.0
// The diagnostic log: marker files, outlets, the log file and its rotation, several writers.
#include <sideband/debug_log.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <thread>

#include "common/debug_log_fixture.h"
#include "support/capture.h"

namespace {

namespace fs = std::filesystem;
using test::DebugLog;
using Lines = std::vector<std::string>;

using DebugLogThreads = DebugLog;

TEST_F(DebugLog, WithoutMarkersNothingIsWrittenAnywhere) {
    test::Capture out(1);
    test::Capture err(2);
    debug_log("message %d\n", 1);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(test::port().syslog, Lines());
    EXPECT_EQ(test::port().console, Lines());
    EXPECT_EQ(entries(), 0u);
    EXPECT_EQ(libc.sequence, (Lines{"access", "access"}));
}

TEST_F(DebugLog, ConsoleMarkerAloneWritesToStandardErrorOnly) {
    touch(DEBUG_LOG_CONSOLE_MARKER);
    test::Capture out(1);
    test::Capture err(2);
    debug_log("[%s] value %d\n", "reader", 42);
    EXPECT_EQ(err.text(), "[reader] value 42\n");
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(test::port().syslog, Lines());
    EXPECT_FALSE(exists(DEBUG_LOG_FILE));
}

TEST_F(DebugLog, FileMarkerAloneWritesToSystemLogAndFileOnly) {
    touch(DEBUG_LOG_FILE_MARKER);
    test::Capture out(1);
    test::Capture err(2);
    debug_log("[%s] value %d\n", "reader", 42);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(test::port().syslog, (Lines{"[reader] value 42\n"}));
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "[reader] value 42\n");
}

TEST_F(DebugLog, BothMarkersWriteTheSameTextToAllOutlets) {
    touch(DEBUG_LOG_CONSOLE_MARKER);
    touch(DEBUG_LOG_FILE_MARKER);
    test::Capture err(2);
    debug_log("%02X and %s", 0xAB, "no line end");
    EXPECT_EQ(err.text(), "AB and no line end");
    EXPECT_EQ(test::port().syslog, (Lines{"AB and no line end"}));
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "AB and no line end");
}

TEST_F(DebugLog, AMessageThatHasNoBytesIsNotWritten) {
    touch(DEBUG_LOG_FILE_MARKER);
    debug_log("%ls\n", L"\U0010FFFF");  // no character of the locale "C"
    EXPECT_EQ(test::port().syslog, Lines());
    EXPECT_FALSE(exists(DEBUG_LOG_FILE));
    debug_log("written\n");
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "written\n");
}

TEST_F(DebugLog, MessagesAreAppended) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(3);
    debug_log("one\n");
    debug_log("two\n");
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "xxxone\ntwo\n");
}

TEST_F(DebugLog, MarkersAreTestedAnewOnEveryCall) {
    debug_log("unseen\n");
    touch(DEBUG_LOG_FILE_MARKER);
    debug_log("seen\n");
    fs::remove(path(DEBUG_LOG_FILE_MARKER));
    debug_log("unseen again\n");
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "seen\n");
    EXPECT_EQ(test::port().syslog, (Lines{"seen\n"}));
}

TEST_F(DebugLog, PercentSignsInArgumentsAreOnlyText) {
    touch(DEBUG_LOG_FILE_MARKER);
    debug_log("%s\n", "100 % %s %n");
    EXPECT_EQ(test::port().syslog, (Lines{"100 % %s %n\n"}));
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "100 % %s %n\n");
}

TEST_F(DebugLog, PercentMIsTheCallersErrnoOnEveryOutlet) {
    touch(DEBUG_LOG_FILE_MARKER);
    const char* format = "%*s%m\n";  // ISO C has no %m: the compiler must not look at it
    for (const bool console : {false, true}) {
        if (console) {
            touch(DEBUG_LOG_CONSOLE_MARKER);
        }
        for (const int width : {1, 1000}) {  // the longer one is formatted twice
            const std::string text =
                std::string(static_cast<size_t>(width) - 1, ' ') + "xDevice or resource busy\n";
            test::Capture err(2);
            errno = EBUSY;
            debug_log(format, width, "x");
            EXPECT_EQ(errno, EBUSY);
            EXPECT_EQ(err.text(), console ? text : "");
            EXPECT_EQ(test::port().syslog.back(), text);
            EXPECT_TRUE(contents(DEBUG_LOG_FILE).ends_with(text));
        }
    }
}

TEST_F(DebugLog, MessagesOfAnyLengthArriveWhole) {
    touch(DEBUG_LOG_CONSOLE_MARKER);
    touch(DEBUG_LOG_FILE_MARKER);
    std::string all;
    for (size_t length : {1u, 254u, 255u, 256u, 257u, 4095u, 4096u, 4097u, 10000u}) {
        test::Capture err(2);
        std::string text(length, 'a');
        debug_log("%s", text.c_str());
        EXPECT_EQ(err.text(), text);
        EXPECT_EQ(test::port().syslog.back(), text);
        all += text;
    }
    EXPECT_EQ(contents(DEBUG_LOG_FILE), all);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(DebugLog, WithoutMemoryALongMessageStillLeavesATraceAndNothingLeaks) {
    touch(DEBUG_LOG_FILE_MARKER);
    std::string text(10000, 'a');
    libc.fail_allocation(1);
    debug_log("%s", text.c_str());
    ASSERT_EQ(test::port().syslog.size(), 1u);
    EXPECT_TRUE(text.starts_with(test::port().syslog[0]));
    EXPECT_FALSE(test::port().syslog[0].empty());
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(DebugLog, TheFileIsLockedFromBeforeTheWriteUntilAfterTheSizeCheck) {
    touch(DEBUG_LOG_FILE_MARKER);
    debug_log("message\n");
    EXPECT_EQ(libc.sequence, (Lines{"access", "access", "open", "fstat", "fdopen", "fileno",
                                    "flock", "fflush", "fstat", "flock", "fclose"}));
    EXPECT_EQ(libc.open_streams(), 0u);
}

TEST_F(DebugLog, RotationHappensAfterTheLockIsReleasedAndTheStreamClosed) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(131072);
    debug_log("message\n");
    EXPECT_EQ(libc.sequence,
              (Lines{"access", "access", "open", "fstat", "fdopen", "fileno", "flock", "fflush",
                     "fstat", "flock", "fclose", "unlink", "rename"}));
}

TEST_F(DebugLog, AWriteThatReachesExactly131072BytesDoesNotRotate) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(131072 - 8);
    debug_log("message\n");
    EXPECT_EQ(fs::file_size(path(DEBUG_LOG_FILE)), 131072u);
    EXPECT_FALSE(exists(DEBUG_LOG_FILE_ROTATED));
}

TEST_F(DebugLog, AWriteThatReaches131073BytesRotatesAndReplacesTheOldGeneration) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(131073 - 8);
    std::ofstream(path(DEBUG_LOG_FILE_ROTATED)) << "the generation before";
    debug_log("message\n");
    EXPECT_FALSE(exists(DEBUG_LOG_FILE));
    EXPECT_EQ(contents(DEBUG_LOG_FILE_ROTATED), std::string(131073 - 8, 'x') + "message\n");
}

TEST_F(DebugLog, TheMessageAfterARotationStartsAFreshFile) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(131072);
    debug_log("crosses\n");
    debug_log("fresh\n");
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "fresh\n");
    EXPECT_EQ(fs::file_size(path(DEBUG_LOG_FILE_ROTATED)), 131072u + 8);
    EXPECT_EQ(entries(), 3u);
}

TEST_F(DebugLog, AMissingDirectoryLosesTheFileCopyAlone) {
    libc.root.clear();
    libc.present = {DEBUG_LOG_FILE_MARKER};
    test::Capture err(2);
    debug_log("message\n");
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(test::port().syslog, (Lines{"message\n"}));
    EXPECT_EQ(libc.sequence, (Lines{"access", "access", "open"}));
}

TEST_F(DebugLog, AFileThatCannotBeOpenedLosesTheFileCopyAlone) {
    touch(DEBUG_LOG_CONSOLE_MARKER);
    touch(DEBUG_LOG_FILE_MARKER);
    libc.fail["open"] = 1;
    test::Capture err(2);
    debug_log("message\n");
    EXPECT_EQ(err.text(), "message\n");
    EXPECT_EQ(test::port().syslog, (Lines{"message\n"}));
    EXPECT_FALSE(exists(DEBUG_LOG_FILE));
}

TEST_F(DebugLog, WithoutADescriptorNothingIsWrittenAndTheStreamIsLeftOpen) {
    touch(DEBUG_LOG_FILE_MARKER);
    libc.fail["fileno"] = 1;
    debug_log("message\n");
    EXPECT_EQ(libc.open_streams(), 1u);
    EXPECT_EQ(libc.open_descriptors(), 0u) << "the stream has it";
    EXPECT_EQ(libc.sequence, (Lines{"access", "access", "open", "fstat", "fdopen", "fileno"}));
    libc.close_streams();
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "");
    EXPECT_EQ(test::port().syslog, (Lines{"message\n"}));
}

TEST_F(DebugLog, AnInterruptedWaitForTheLockIsResumed) {
    touch(DEBUG_LOG_FILE_MARKER);
    libc.fail["flock"] = 1;
    libc.failure_errno = EINTR;
    debug_log("message\n");
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "message\n");
    EXPECT_EQ(libc.calls["flock"], 3);
}

TEST_F(DebugLog, NoFailureOfAFileCallReachesTheCaller) {
    touch(DEBUG_LOG_FILE_MARKER);
    for (const char* call :
         {"access", "open", "fdopen", "flock", "fflush", "fstat", "fclose", "unlink", "rename"}) {
        make_log(131072);
        libc.fail = {{call, libc.kEvery}};
        debug_log("message\n");
        EXPECT_EQ(libc.open_streams(), 0u) << call;
        EXPECT_EQ(libc.open_descriptors(), 0u) << call;
    }
    EXPECT_EQ(test::port().syslog.size(), 8u) << "all but the one without the marker";
}

TEST_F(DebugLog, WithoutTheFilesStatusThereIsNoRotation) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(131072);
    libc.fail["fstat"] = 2;  // the first one asks what was opened
    debug_log("message\n");
    EXPECT_EQ(fs::file_size(path(DEBUG_LOG_FILE)), 131080u);
    EXPECT_FALSE(exists(DEBUG_LOG_FILE_ROTATED));
}

TEST_F(DebugLog, AMissingOldGenerationDoesNotHinderTheRotation) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(131072);
    libc.fail["unlink"] = 1;
    debug_log("message\n");
    EXPECT_EQ(fs::file_size(path(DEBUG_LOG_FILE_ROTATED)), 131080u);
}

TEST_F(DebugLog, AFailedRenameLeavesTheFileInPlace) {
    touch(DEBUG_LOG_FILE_MARKER);
    make_log(131072);
    libc.fail["rename"] = 1;
    debug_log("message\n");
    EXPECT_EQ(fs::file_size(path(DEBUG_LOG_FILE)), 131080u);
}

/// Writes count messages of length characters, each a run of one letter.
void write_messages(char letter, int count, size_t length) {
    std::string text(length, letter);
    for (int i = 0; i < count; i++) {
        debug_log("%s\n", text.c_str());
    }
}

/// Threads that write at once, each its own letter.
void write_from_threads(const std::string& letters, int count, size_t length) {
    std::vector<std::thread> threads;
    for (const char letter : letters) {
        threads.emplace_back([=] { write_messages(letter, count, length); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Processes that write at once, each by as many threads as it has letters.
void write_from_processes(const std::vector<std::string>& processes, int count, size_t length) {
    std::vector<pid_t> children;
    for (const std::string& letters : processes) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            write_from_threads(letters, count, length);
            _exit(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

/// The number of whole messages by letter; a line that is not one whole message is a failure.
std::map<char, int> count_whole(const Lines& lines, size_t length) {
    std::map<char, int> counts;
    for (const std::string& line : lines) {
        EXPECT_EQ(line.size(), length);
        EXPECT_EQ(line.find_first_not_of(line[0]), std::string::npos) << "messages are mixed";
        counts[line[0]]++;
    }
    return counts;
}

TEST_F(DebugLog, TwoProcessesNeitherMixNorLoseMessages) {
    touch(DEBUG_LOG_FILE_MARKER);
    // 2 * 200 * 300 bytes: just below the rotation.
    write_from_processes({"a", "b"}, 200, 299);
    EXPECT_EQ(count_whole(lines(DEBUG_LOG_FILE), 299),
              (std::map<char, int>{{'a', 200}, {'b', 200}}));
}

TEST_F(DebugLog, TwoProcessesDoNotMixMessagesLongerThanABuffer) {
    touch(DEBUG_LOG_FILE_MARKER);
    // Each takes several writes to the file, so that only the lock keeps them apart.
    write_from_processes({"a", "b"}, 6, 9999);
    EXPECT_EQ(count_whole(lines(DEBUG_LOG_FILE), 9999), (std::map<char, int>{{'a', 6}, {'b', 6}}));
}

TEST_F(DebugLog, TwoProcessesThatRotateKeepMessagesWhole) {
    touch(DEBUG_LOG_FILE_MARKER);
    write_from_processes({"a", "b"}, 100, 4999);
    const std::map<char, int> current = count_whole(lines(DEBUG_LOG_FILE), 4999);
    const std::map<char, int> rotated = count_whole(lines(DEBUG_LOG_FILE_ROTATED), 4999);
    // Both may rotate at one time, and the second one then has next to nothing to rotate: which of
    // the two files holds messages is not certain, that one of them does is.
    EXPECT_FALSE(current.empty() && rotated.empty());
    EXPECT_LE(entries(), 3u);
}

TEST_F(DebugLogThreads, SeveralThreadsNeitherMixNorLoseMessages) {
    touch(DEBUG_LOG_FILE_MARKER);
    write_from_threads("abcd", 60, 499);
    EXPECT_EQ(count_whole(lines(DEBUG_LOG_FILE), 499),
              (std::map<char, int>{{'a', 60}, {'b', 60}, {'c', 60}, {'d', 60}}));
    EXPECT_EQ(test::port().syslog.size(), 240u);
}

TEST_F(DebugLogThreads, OfTwoProcessesNeitherMixNorLoseMessages) {
    touch(DEBUG_LOG_FILE_MARKER);
    // Just below the rotation.
    write_from_processes({"abcd", "efgh"}, 40, 399);
    std::map<char, int> all;
    for (char letter = 'a'; letter <= 'h'; ++letter) {
        all[letter] = 40;
    }
    EXPECT_EQ(count_whole(lines(DEBUG_LOG_FILE), 399), all);
}

TEST_F(DebugLogThreads, OfTwoProcessesThatRotateKeepMessagesWhole) {
    touch(DEBUG_LOG_FILE_MARKER);
    write_from_processes({"abcd", "efgh"}, 25, 4999);
    const std::map<char, int> current = count_whole(lines(DEBUG_LOG_FILE), 4999);
    const std::map<char, int> rotated = count_whole(lines(DEBUG_LOG_FILE_ROTATED), 4999);
    EXPECT_FALSE(current.empty() && rotated.empty());
    EXPECT_LE(entries(), 3u);
}

}  // namespace
