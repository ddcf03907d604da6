// SPDX-License-Identifier: Apache-2.0
// How a boot is shown: as text for a person, or as one JSON document.
#pragma once

#include <cstdio>
#include <string>

#include "boot.h"
#include "json.h"

namespace extprop_sim {

// The text report, written to |file| as it is made.
void WriteBootReportText(const BootConfig& config, const BootResult& result, FILE* file);
std::string BootReportJson(const BootConfig& config, const BootResult& result);

// A step of a boot as the JSON documents show it: "step" (its index, null
// outside the steps), "slot" and "operation" (null but for an operation),
// "description" (bytes).
Json StepJson(const BootResult& result, int index);
// The property contexts files in use, or null when the check was off.
Json ContextsJson(const sandbox::Outcome& outcome);

// "I", "W", ... as libbase's logger prints the severity.
char SeverityLetter(android::base::LogSeverity severity);

}  // namespace extprop_sim
