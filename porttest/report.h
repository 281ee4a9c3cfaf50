// SPDX-License-Identifier: Apache-2.0
// How a judgement is told: line by line, or as one JSON document.
#ifndef SIDEBAND_PORTTEST_REPORT_H
#define SIDEBAND_PORTTEST_REPORT_H

#include "porttest/runner.h"

namespace porttest {

void print_rule(const Judged& judged);
void print_totals(const std::vector<Judged>& judged);
void print_json(const Options& options, const std::vector<Judged>& judged);
void print_list(bool json);

/// Whether a rule failed.
bool any_failed(const std::vector<Judged>& judged);

}  // namespace porttest

#endif
