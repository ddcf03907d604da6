// SPDX-License-Identifier: Apache-2.0
// check --golden: a boot's --json document against a saved one, by property.
#pragma once

#include <string>
#include <vector>

#include "json.h"

namespace extprop_sim {

// |document| (a boot's --json document) without what varies from one machine
// or run to the next: the library's source line of each log record, timings
// in log messages, and where the script lies (a step's paths are taken
// relative to |script_dir|, as the script wrote them); and without the
// properties and log messages that match one of |ignored| (shell globs).
Json NormalizedBootDocument(Json document, const std::vector<std::string>& ignored,
                            const std::string& script_dir);

// What differs between two normalized documents, one line each, by property:
//   after boot: NAME: golden "A", now "B"        (also: only now / only golden)
//   step 2 slot 6 loadPersistOverrideProperties kind 2: NAME: "A" -> "B"
//   log: only now: W "message"
// Empty when they are the same. Bytes from the tree are escaped.
std::vector<std::string> GoldenDifferences(const Json& golden, const Json& now);

}  // namespace extprop_sim
