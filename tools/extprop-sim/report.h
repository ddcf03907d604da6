// SPDX-License-Identifier: Apache-2.0
// How a boot is shown: as text for a person, or as one JSON document.
#pragma once

#include <string>

#include "boot.h"

namespace extprop_sim {

std::string BootReportText(const BootConfig& config, const BootResult& result);
std::string BootReportJson(const BootConfig& config, const BootResult& result);

// "I", "W", ... as libbase's logger prints the severity.
char SeverityLetter(android::base::LogSeverity severity);

}  // namespace extprop_sim
