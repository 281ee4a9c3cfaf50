// SPDX-License-Identifier: Apache-2.0
// Has each call that each exported function makes fail in turn, and judges what comes of it.
//
// usage: sweep [FUNCTION...]
#include <sideband/error.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "faults.h"
#include "scenario.h"
#include "support/socket_patch.h"
#include "symbols.h"

namespace sweep {
namespace {

/// The report goes where standard output led before the library's own texts were led away.
std::FILE* report;
unsigned violations;

/// A failure that is asked for; without an import none is.
struct Fault {
    const Import* import = nullptr;
    unsigned nth = 0;
    bool for_good = false;

    std::string text() const {
        return import == nullptr ? "no fault"
                                 : std::string(import->name()) + ", call " + std::to_string(nth) +
                                       (for_good ? " and all behind it" : "");
    }
};

struct Outcome {
    int64_t result = 0;
    std::string stored;
    std::string record;

    bool same_as(const Outcome& other) const {
        return result == other.result && stored == other.stored;
    }
    std::string text() const { return std::to_string(result) + " [" + stored + "] " + record; }
};

/// What a run without a fault gives.
struct Reference {
    Outcome first;
    Outcome second;
    size_t blocks = 0;  ///< that the first call leaves with the caller
    std::map<const Import*, unsigned> calls;
};

/// What became of the calls of one function that were made to fail.
struct Tally {
    std::map<Kind, unsigned> calls;
    std::map<Kind, unsigned> faults;
    unsigned unnoticed = 0;
    std::map<uint8_t, unsigned> causes;
    unsigned without_record = 0;

    void add(const Tally& other) {
        for (const auto& [kind, count] : other.calls) {
            calls[kind] += count;
        }
        for (const auto& [kind, count] : other.faults) {
            faults[kind] += count;
        }
        unnoticed += other.unnoticed;
        for (const auto& [cause, count] : other.causes) {
            causes[cause] += count;
        }
        without_record += other.without_record;
    }
};

/// The text of a cause alone.
std::string name_of(uint8_t cause) {
    char text[64];
    const sideband_error error{cause, 0, 0, 0, 0, 0};
    sideband_error_text(&error, text, sizeof text);
    return std::string(text).substr(0, std::string_view(text).find(':'));
}

std::string text_of(const sideband_error& error) {
    char text[128];
    sideband_error_text(&error, text, sizeof text);
    return text;
}

/// One run of a scenario: the call with a fault, and the call once more.
class Run {
public:
    Run(const Scenario& scenario, const Fault& fault) : scenario_(scenario), fault_(fault) {
        if (scenario.set_up != nullptr) {
            scenario.set_up(world_);
        }
        blocks_before_ = Faults::blocks();
        descriptors_before_ = Faults::descriptors();
        mappings_before_ = Faults::mappings();
        stored_before_ = stored();
    }

    Outcome call(const Fault& fault) {
        Faults::begin(fault.import, fault.nth, fault.for_good);
        Outcome outcome;
        outcome.result = scenario_.call(world_);
        struck_ = Faults::end();
        outcome.stored = stored();
        if (scenario_.record != nullptr) {
            cause_ = scenario_.record(world_).cause;
            outcome.record = text_of(scenario_.record(world_));
        }
        return outcome;
    }

    void again() {
        if (scenario_.again != nullptr) {
            scenario_.again(world_);
        }
    }

    void release() {
        if (scenario_.release != nullptr) {
            scenario_.release(world_);
        }
    }

    size_t new_blocks() const { return Faults::blocks() - blocks_before_; }
    uint8_t cause() const { return cause_; }
    bool struck() const { return struck_; }
    const std::string& stored_before() const { return stored_before_; }

    void complain(const std::string& what) const {
        ++violations;
        std::fprintf(report, "VIOLATION  %s%s%s: %s: %s\n", scenario_.function,
                     scenario_.way[0] != '\0' ? ", " : "", scenario_.way, fault_.text().c_str(),
                     what.c_str());
    }

    void look_at_locks() const {
        if (world_.board == nullptr) {
            return;
        }
        const sim::LockReport locks = world_.board->lock_report();
        for (const std::string& lock : locks.held) {
            complain("still held: " + lock);
        }
        for (const std::string& violation : locks.violations) {
            complain(violation);
        }
    }

    /// At the end of a call: files and mappings, of which those that it delivers are the caller's.
    void look_at_files(bool failed) const {
        const bool delivers = scenario_.release != nullptr && !failed;
        if (!delivers && (Faults::descriptors() != descriptors_before_ ||
                          Faults::mappings() != mappings_before_)) {
            complain("a descriptor or a mapping stays open");
        }
    }

    /// At the end of the run nothing is left.
    void look_at_rest(size_t never_freed) const {
        if (Faults::blocks() != never_freed) {
            complain(std::to_string(Faults::blocks()) + " blocks are lost");
        }
        if (Faults::descriptors() != 0 || Faults::mappings() != 0) {
            complain("descriptors or mappings are lost");
        }
        const bool may_leave = scenario_.leaves_stream && fault_.import != nullptr &&
                               std::string(fault_.import->name()) == "fileno";
        if (Faults::streams() != (may_leave ? 1 : 0)) {
            complain(std::to_string(Faults::streams()) + " streams stay open");
        }
        if (world_.board != nullptr && world_.board->pcie_sessions().open != 0) {
            complain("a PCIe session stays open");
        }
    }

private:
    std::string stored() const {
        return scenario_.stored != nullptr ? scenario_.stored(world_) : "";
    }

    const Scenario& scenario_;
    Fault fault_;
    World world_;
    size_t blocks_before_;
    size_t descriptors_before_;
    size_t mappings_before_;
    std::string stored_before_;
    uint8_t cause_ = SIDEBAND_CAUSE_NONE;
    bool struck_ = false;
};

/// Sockets are kept for a while by the library: a request much later closes them.
void close_old_sockets(const Run& run) {
    if (sockets() == nullptr) {
        return;
    }
    sockets()->now += 1000000;
    sockets()->errors["socket"] = {EMFILE};
    mctp_ctx other{};
    other.binding_kind = MCTP_BINDING_KIND_SOCKET;
    other.skip_discovery = 1;
    mctp_init2(&other);
    other.send(&other, 0, nullptr, 1);
    if (sockets()->open_sockets() != 0) {
        run.complain("a socket stays open");
    }
}

/// Nothing is known of a call that fails without a fault.
void look_for_success(const Scenario& scenario, const Run& run, const Outcome& outcome) {
    const bool fails = outcome.result != 0 && scenario.failures.contains(outcome.result);
    const bool has_record = scenario.record != nullptr && run.cause() != SIDEBAND_CAUSE_NONE;
    if ((fails || has_record) && !scenario.fails_by_itself) {
        run.complain("fails by itself: " + outcome.text());
    }
}

Reference refer(const Scenario& scenario) {
    Reference reference;
    Run run(scenario, {});
    reference.first = run.call({});
    look_for_success(scenario, run, reference.first);
    for (const Import& import : imports()) {
        if (import.slot->calls != 0) {
            reference.calls[&import] = import.slot->calls;
        }
    }
    reference.blocks = run.new_blocks();
    run.look_at_locks();
    run.look_at_files(false);
    run.again();
    reference.second = run.call({});
    look_for_success(scenario, run, reference.second);
    run.release();
    run.look_at_rest(2 * scenario.never_freed);
    close_old_sockets(run);
    Faults::give_back();
    return reference;
}

bool has_cause(const Scenario& scenario, const Import& import, uint8_t cause) {
    if (std::find(import.causes.begin(), import.causes.end(), cause) != import.causes.end()) {
        return true;
    }
    return std::any_of(
        scenario.also_causes.begin(), scenario.also_causes.end(),
        [&](const auto& also) { return also.first == import.name() && also.second == cause; });
}

/// Judges a call that has failed by what it has left.
void judge_failure(const Scenario& scenario, const Import& import, const Run& run,
                   const Outcome& outcome, Tally& tally) {
    const bool in_vain = import.shows == Shows::kNever;
    if (in_vain) {
        run.complain("is noticed: " + outcome.text());
    }
    const bool is_code = scenario.gives_codes && run.cause() == SIDEBAND_CAUSE_DEVICE;
    if (!scenario.failures.contains(outcome.result) && !is_code) {
        run.complain("another result than is documented: " + outcome.text());
    }
    if (!scenario.keeps_parts && outcome.stored != run.stored_before()) {
        run.complain("has stored something: " + outcome.text());
    }
    if (!scenario.owns && run.new_blocks() != scenario.never_freed && run.new_blocks() != 0) {
        run.complain("keeps " + std::to_string(run.new_blocks()) + " blocks");
    }
    if (scenario.record == nullptr) {
        ++tally.without_record;
        return;
    }
    ++tally.causes[run.cause()];
    if (!in_vain && !has_cause(scenario, import, run.cause())) {
        run.complain("another cause: " + outcome.text());
    }
}

/// Judges a call that has gone on as if nothing had been.
void judge_success(const Scenario& scenario, const Import& import, const Run& run,
                   const Outcome& outcome, const Reference& reference, Tally& tally) {
    ++tally.unnoticed;
    const bool does_without = scenario.does_without.contains(import.name());
    if (import.shows == Shows::kMust && !does_without && !scenario.succeeds_anyway) {
        run.complain("goes unnoticed: " + outcome.text());
    }
    const bool told =
        (scenario.succeeds_anyway || does_without) && has_cause(scenario, import, run.cause());
    if (outcome.record != reference.first.record && !told) {
        run.complain("succeeds, yet has a record: " + outcome.text());
    }
    const bool fewer = does_without && run.new_blocks() < reference.blocks;
    if (run.new_blocks() != reference.blocks && !fewer) {
        run.complain(std::to_string(run.new_blocks()) + " blocks instead of " +
                     std::to_string(reference.blocks));
    }
}

void strike(const Scenario& scenario, const Reference& reference, const Fault& fault,
            Tally& tally) {
    Run run(scenario, fault);
    const Outcome outcome = run.call(fault);
    if (!run.struck()) {
        run.complain("is not reached");
    }
    const bool failed = !outcome.same_as(reference.first);
    ++tally.faults[fault.import->kind];
    if (failed) {
        judge_failure(scenario, *fault.import, run, outcome, tally);
    } else {
        judge_success(scenario, *fault.import, run, outcome, reference, tally);
    }
    run.look_at_locks();
    run.look_at_files(failed);
    const size_t never_freed = failed ? run.new_blocks() : scenario.never_freed;
    run.again();
    const Outcome once_more = run.call({});
    if (!once_more.same_as(reference.first) && !once_more.same_as(reference.second)) {
        run.complain("once more: " + once_more.text() + ", and not " + reference.first.text());
    }
    run.look_at_locks();
    run.release();
    run.look_at_rest(scenario.never_freed == 0 ? 0 : never_freed + scenario.never_freed);
    close_old_sockets(run);
    Faults::give_back();
}

/// @param met  receives what the scenario comes by
Tally sweep_scenario(const Scenario& scenario, std::set<const Import*>& met) {
    Tally tally;
    // The library keeps some things for the process: they are settled when the calls are counted.
    refer(scenario);
    const Reference reference = refer(scenario);
    for (const auto& [import, calls] : reference.calls) {
        met.insert(import);
        tally.calls[import->kind] += calls;
        for (unsigned nth = 1; nth <= calls; ++nth) {
            strike(scenario, reference, {import, nth, false}, tally);
            if (import->shows != Shows::kNever) {
                strike(scenario, reference, {import, nth, true}, tally);
            }
        }
    }
    return tally;
}

// ---- The report ----

void print_row(const std::string& name, Tally tally) {
    std::fprintf(
        report, "%-42s %6u %6u %6u %7u  unnoticed %u", name.c_str(), tally.calls[Kind::kAllocation],
        tally.calls[Kind::kPlatform], tally.calls[Kind::kLibc],
        tally.faults[Kind::kAllocation] + tally.faults[Kind::kPlatform] + tally.faults[Kind::kLibc],
        tally.unnoticed);
    for (const auto& [cause, count] : tally.causes) {
        std::fprintf(report, ", %s %u", name_of(cause).c_str(), count);
    }
    if (tally.without_record != 0) {
        std::fprintf(report, ", failed %u", tally.without_record);
    }
    std::fprintf(report, "\n");
    std::fflush(report);
}

std::vector<Scenario> all_scenarios() {
    std::vector<Scenario> all;
    for (auto* room :
         {mctp_scenarios, mpio_scenarios, pldm_scenarios, monitor_scenarios, fru_scenarios,
          package_scenarios, update_scenarios, ncsi_scenarios, nvme_scenarios, text_scenarios}) {
        const std::vector<Scenario> some = room();
        all.insert(all.end(), some.begin(), some.end());
    }
    // Those over sockets last: for them there is a kernel underneath.
    std::stable_partition(all.begin(), all.end(),
                          [](const Scenario& scenario) { return !scenario.over_sockets; });
    return all;
}

/// What nobody has thought of: a function of the library, or one that it calls.
void look_at_symbols(const std::vector<Scenario>& scenarios) {
    const Symbols symbols = library_symbols();
    std::set<std::string> known;
    for (const Scenario& scenario : scenarios) {
        known.insert(scenario.function);
        if (!symbols.functions.contains(scenario.function)) {
            std::fprintf(report, "VIOLATION  %s: the library has no such function\n",
                         scenario.function);
            ++violations;
        }
    }
    for (const std::string& function : symbols.functions) {
        if (!known.contains(function)) {
            std::fprintf(report, "VIOLATION  %s: no scenario\n", function.c_str());
            ++violations;
        }
    }
    std::set<std::string> failing;
    for (const Import& import : imports()) {
        failing.insert(import.names.begin(), import.names.end());
    }
    for (const std::string& name : symbols.imports) {
        if (!failing.contains(name) && !cannot_fail(name)) {
            std::fprintf(report, "VIOLATION  the library calls %s: can it fail?\n", name.c_str());
            ++violations;
        }
    }
}

/// Each import that the library has must be met by some scenario, or nothing is known of it.
void look_at_coverage(const std::set<const Import*>& met) {
    const Symbols symbols = library_symbols();
    for (const Import& import : imports()) {
        const bool wanted =
            std::any_of(import.names.begin(), import.names.end(),
                        [&](const char* name) { return symbols.imports.contains(name); });
        if (wanted && !met.contains(&import)) {
            std::fprintf(report, "VIOLATION  %s: no scenario comes by it\n", import.name());
            ++violations;
        }
    }
}

int sweep_all(const std::set<std::string>& wanted) {
    const std::vector<Scenario> scenarios = all_scenarios();
    look_at_symbols(scenarios);
    std::fprintf(report, "%-42s %6s %6s %6s %7s  %s\n", "function", "alloc", "plat", "libc",
                 "faults", "outcomes");
    std::unique_ptr<test::SocketPatch> kernel;
    auto faults = std::make_unique<Faults>();
    std::set<const Import*> met;
    Tally total;
    unsigned count = 0;
    for (const Scenario& scenario : scenarios) {
        if (!wanted.empty() && !wanted.contains(scenario.function)) {
            continue;
        }
        if (scenario.over_sockets && kernel == nullptr) {
            faults.reset();
            kernel = std::make_unique<test::SocketPatch>();
            sockets() = kernel.get();
            faults = std::make_unique<Faults>();
        }
        const Tally tally = sweep_scenario(scenario, met);
        const std::string way = scenario.way;
        print_row(scenario.function + (way.empty() ? "" : " (" + way + ")"), tally);
        total.add(tally);
        ++count;
    }
    faults.reset();
    sockets() = nullptr;
    print_row("all " + std::to_string(count) + " scenarios", total);
    if (wanted.empty()) {
        look_at_coverage(met);
    }
    std::fprintf(report, "%u violations\n", violations);
    return violations == 0 ? 0 : 1;
}

}  // namespace
}  // namespace sweep

int main(int argc, char** argv) {
    sweep::report = fdopen(dup(STDOUT_FILENO), "w");
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (sweep::report == nullptr || nowhere < 0) {
        std::perror("sweep");
        return 1;
    }
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
    const int result = sweep::sweep_all({argv + 1, argv + argc});
    std::filesystem::remove_all(sweep::own_nv());
    return result;
}
