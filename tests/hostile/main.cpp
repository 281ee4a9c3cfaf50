// SPDX-License-Identifier: Apache-2.0
// The campaign against hostile devices: as many cases as there is time for, each in its own
// process.
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "case.h"

namespace {

using hostile::Boards;
using hostile::CallTally;
using hostile::Protocol;
using hostile::Tally;

/// Real seconds in which a case must be done, however slow the machine is.
constexpr unsigned kHangS = 120;

struct Wish {
    uint64_t seconds = 0;   ///< 0: no limit
    uint64_t messages = 0;  ///< likewise
    uint64_t seed = 0;
    unsigned jobs = 1;
    bool single = false;
    uint64_t index = 0;  ///< of the single case
};

int usage() {
    std::fputs(
        "usage: hostile-campaign SECONDS SEED [JOBS]\n"
        "       hostile-campaign --exchanges COUNT SEED [JOBS]\n"
        "       hostile-campaign --case INDEX SEED\n",
        stderr);
    return 2;
}

bool read_number(const char* text, uint64_t& number) {
    char* end = nullptr;
    number = std::strtoull(text, &end, 0);
    return end != text && *end == '\0' && text[0] != '-';
}

bool read_wish(int count, char** arguments, Wish& wish) {
    std::vector<char*> words(arguments + 1, arguments + count);
    uint64_t* first = &wish.seconds;
    if (!words.empty() && std::strcmp(words[0], "--exchanges") == 0) {
        first = &wish.messages;
        words.erase(words.begin());
    } else if (!words.empty() && std::strcmp(words[0], "--case") == 0) {
        first = &wish.index;
        wish.single = true;
        words.erase(words.begin());
    }
    uint64_t jobs = 1;
    const bool good = (words.size() == 2 || (words.size() == 3 && !wish.single)) &&
                      read_number(words[0], *first) && read_number(words[1], wish.seed) &&
                      (words.size() < 3 || read_number(words[2], jobs));
    wish.jobs = static_cast<unsigned>(std::clamp<uint64_t>(jobs, 1, 256));
    return good;
}

Tally* share_tallies(size_t count) {
    void* const memory = mmap(nullptr, sizeof(Tally) * count, PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED ? static_cast<Tally*>(memory) : nullptr;
}

uint64_t messages_of(const Tally& tally) {
    uint64_t sum = 0;
    for (const CallTally& call : tally.calls) {
        sum += call.messages;
    }
    return sum;
}

void tell_failure(const char* program, const Tally& tally, int status, uint64_t seed) {
    std::string why = tally.complaint;
    if (WIFSIGNALED(status)) {
        why = WTERMSIG(status) == SIGALRM ? "does not come back"
                                          : std::string(strsignal(WTERMSIG(status)));
    } else if (why.empty()) {
        why = "a sanitizer's report, above";
    }
    std::printf("FAILED: case %" PRIu64 ", in %s: %s\n  repeat it with: %s --case %" PRIu64
                " %" PRIu64 "\n",
                tally.current, tally.last_call, why.c_str(), program, tally.current, seed);
    std::fflush(stdout);
}

/// Runs one case in a process of its own. @return its status
int fork_case(Boards& boards, const Wish& wish, uint64_t index, Tally& tally) {
    tally.complaint[0] = '\0';
    tally.current = index;
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        // Nobody would end it otherwise where the campaign itself is ended.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(kHangS);
        const bool holds = hostile::run_case(boards, wish.seed, index, tally, wish.single);
        std::fflush(stdout);
        _exit(holds ? 0 : 1);
    }
    int status = -1;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        std::perror("hostile-campaign");
        _exit(2);
    }
    return status;
}

/// One worker: every so many cases are its. @return whether all hold
bool work(const char* program, Boards& boards, const Wish& wish, Tally* tallies, unsigned worker) {
    const time_t end = time(nullptr) + static_cast<time_t>(wish.seconds);
    Tally& own = tallies[worker];
    for (uint64_t index = worker;; index += wish.jobs) {
        const bool over = (wish.seconds != 0 && time(nullptr) >= end) ||
                          (wish.messages != 0 && messages_of(own) * wish.jobs >= wish.messages);
        if (over) {
            return true;
        }
        const int status = fork_case(boards, wish, index, own);
        if (status != 0) {
            tell_failure(program, own, status, wish.seed);
            return false;
        }
    }
}

void add(Tally& sum, const Tally& part) {
    sum.cases += part.cases;
    sum.lax += part.lax;
    sum.packets += part.packets;
    for (size_t i = 0; i < std::size(sum.ways); ++i) {
        sum.ways[i] += part.ways[i];
    }
    for (size_t i = 0; i < hostile::kMostCalls; ++i) {
        CallTally& to = sum.calls[i];
        const CallTally& from = part.calls[i];
        to.calls += from.calls;
        to.messages += from.messages;
        to.most_messages = std::max(to.most_messages, from.most_messages);
        to.longest_us = std::max(to.longest_us, from.longest_us);
        for (size_t j = 0; j < hostile::kOutcomes; ++j) {
            to.outcomes[j] += from.outcomes[j];
        }
    }
}

void print_row(const char* name, const CallTally& call) {
    std::printf("%-44s %9" PRIu64 " %10" PRIu64, name, call.calls, call.messages);
    for (const uint64_t count : call.outcomes) {
        std::printf(" %9" PRIu64, count);
    }
    std::printf(" %7" PRIu64 " %9.1f\n", call.most_messages,
                static_cast<double>(call.longest_us) * 1e-6);
}

void print_tally(const Tally& sum) {
    std::printf("%-44s %9s %10s %9s %9s %9s %9s %9s %9s %7s %9s\n", "", "calls", "exchanges",
                "taken", "code", "refused", "silence", "deadline", "other", "most", "longest s");
    size_t number = 0;
    CallTally all;
    for (const Protocol* const protocol : hostile::protocols()) {
        for (const hostile::Call& call : protocol->calls) {
            const CallTally& row = sum.calls[number++];
            print_row(call.name, row);
            all.calls += row.calls;
            all.messages += row.messages;
            for (size_t i = 0; i < hostile::kOutcomes; ++i) {
                all.outcomes[i] += row.outcomes[i];
            }
        }
    }
    print_row("all", all);
    std::printf("%" PRIu64 " cases, %" PRIu64 " of them lax: %" PRIu64 " over SMBus, %" PRIu64
                " over PCIe, %" PRIu64 " over sockets; %" PRIu64 " exchanges, %" PRIu64
                " packets of devices\n",
                sum.cases, sum.lax, sum.ways[0], sum.ways[1], sum.ways[2], all.messages,
                sum.packets);
}

/// Runs the workers. @return whether all cases hold
bool run_all(const char* program, Boards& boards, const Wish& wish, Tally* tallies) {
    std::vector<pid_t> workers;
    for (unsigned worker = 0; worker < wish.jobs; ++worker) {
        std::fflush(stdout);
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const bool holds = work(program, boards, wish, tallies, worker);
            std::fflush(stdout);
            _exit(holds ? 0 : 1);
        }
        workers.push_back(child);
    }
    bool holds = true;
    for (const pid_t child : workers) {
        int status = -1;
        waitpid(child, &status, 0);
        holds = holds && status == 0;
    }
    return holds;
}

}  // namespace

int main(int count, char** arguments) {
    Wish wish;
    if (!read_wish(count, arguments, wish)) {
        return usage();
    }
    std::printf("seed %" PRIu64 "\n", wish.seed);
    const std::unique_ptr<Boards> boards = hostile::make_boards();
    Tally* const tallies = share_tallies(wish.jobs + 1);
    if (boards == nullptr || tallies == nullptr) {
        return 2;
    }
    bool holds = true;
    if (wish.single) {
        const int status = fork_case(*boards, wish, wish.index, tallies[0]);
        holds = status == 0;
        if (!holds) {
            tell_failure(arguments[0], tallies[0], status, wish.seed);
        }
    } else {
        holds = run_all(arguments[0], *boards, wish, tallies);
        Tally& sum = tallies[wish.jobs];
        for (unsigned worker = 0; worker < wish.jobs; ++worker) {
            add(sum, tallies[worker]);
        }
        print_tally(sum);
    }
    hostile::remove_files(boards->files);
    std::printf("%s\n", holds ? "nothing found" : "something was found");
    return holds ? 0 : 1;
}
