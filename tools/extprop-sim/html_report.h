// SPDX-License-Identifier: Apache-2.0
// A boot as one self-contained HTML page, to look at in a browser: the steps
// and batches with init's refusals highlighted, every property after boot
// with the file:line (or batch) it came from in a table with a filter box,
// and a grid of which partition defines each property and which definition
// wins. CSS and script are inline; the page loads nothing at view time.
// Every text from the tree or the library is escaped.
#pragma once

#include <string>

#include "boot.h"
#include "definitions.h"

namespace extprop_sim {

// Text for HTML element content and attribute values: control bytes shown
// as escapes, invalid UTF-8 replaced, & < > " ' escaped.
std::string HtmlText(const std::string& bytes);

// The page. |model| comes from BuildDefinitions of the same boot, which must
// have recorded every loaded file (RecordEveryLoadedFile).
std::string HtmlReport(const BootConfig& config, const BootResult& result,
                       const DefinitionsModel& model);

// Writes the page to |path|; false with the reason when it can't.
bool WriteHtmlReport(const std::string& path, const BootConfig& config, const BootResult& result,
                     const DefinitionsModel& model, std::string* error);

}  // namespace extprop_sim
