// SPDX-License-Identifier: Apache-2.0
// Text for a terminal made from bytes a device tree chose: names, values,
// paths and log messages. Control bytes are shown escaped (\n, \r, \t,
// \x1b, and C1 controls as \xc2\x9b), so that a file name or a value can
// neither add report lines nor drive the terminal. JSON output has its own,
// exact escaping and doesn't use this.
#pragma once

#include <string>

namespace extprop_sim {

std::string Printable(const std::string& text);
// The same, appended to |out|: no copy of each of a large report's names and values.
void AppendPrintable(const std::string& text, std::string* out);

}  // namespace extprop_sim
