// SPDX-License-Identifier: Apache-2.0
// A script's assertions. Those about the device as it is at that step
// (expect-prop, expect-no-prop, expect-file) are checked inside the device
// when the step runs; those about what the boot handed over or logged
// (expect-batch, expect-log, expect-no-log) afterwards, on the host, against
// the records of the same boot up to that step. A failed assertion doesn't
// stop the run: every failure is reported, and the run exits 1.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <android-base/logging.h>

#include "boot.h"
#include "sandbox.h"

namespace extprop_sim {

// V, D, I, W, E, F or VERBOSE, DEBUG, INFO, WARNING, ERROR, FATAL.
std::optional<android::base::LogSeverity> ParseSeverity(const std::string& text);

// An expect-batch KIND: a kind code, or "map" for the maps slots 4 and 5 fill.
std::optional<int> ParseBatchKind(const std::string& text);

// Inside the device: checks expect-prop, expect-no-prop or expect-file now.
void CheckInDevice(const Step& step, sandbox::Context& ctx, const std::string& note_key);

// Inside the device: what a wait saw when it timed out.
void NoteWaitTimeout(const Step& step, sandbox::Context& ctx, const std::string& note_key);

// On the host, after the boots: checks the assertions about records, notes
// their verdicts, and returns every failure of the script in step order.
std::vector<AssertionFailure> CheckScript(BootResult* result);

// "line 7: expect-prop NAME VALUE" and the expected and seen lines, escaped.
std::string FailureText(const BootResult& result, const AssertionFailure& failure);

}  // namespace extprop_sim
