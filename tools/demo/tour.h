// SPDX-License-Identifier: Apache-2.0
// The frame of the demo: numbered steps, each shown while it runs, and the summary of all.
#ifndef SIDEBAND_TOOLS_DEMO_TOUR_H
#define SIDEBAND_TOOLS_DEMO_TOUR_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/shell/command.h"
#include "tools/shell/json.h"

namespace tool {

class Tour {
public:
    /// What a step fills in while it runs.
    struct Step {
        Output& output;
        std::string result;    ///< for the summary, a few words
        Json details;          ///< for programs; null if there is nothing to tell
        bool skipped = false;  ///< the board has nothing to show here

        /// A line for people.
        void say(std::string_view line) const;
        /// Ends the step: there is nothing to show.
        void skip(std::string_view why);
    };

    explicit Tour(Context& context) : context_(context) {}

    /// Runs one step. A step fails by throwing Failure; the tour goes on after it.
    void step(const std::string& title, const std::string& explanation, const std::string& endpoint,
              const std::function<void(Step&)>& action);

    /// Shows the summary and what the buses did, and reports the steps that failed.
    void finish();

private:
    struct Done {
        std::string endpoint;
        std::string title;
        std::string outcome;  ///< ok, skipped, failed
        std::string result;
        uint64_t end_us = 0;
        Json details;
    };

    Table summary() const;
    std::string buses_text() const;
    std::string pcie_text() const;
    Json steps_json() const;
    Json buses_json() const;

    Context& context_;
    std::vector<Done> steps_;
    std::vector<Failure> failures_;
};

}  // namespace tool

#endif
