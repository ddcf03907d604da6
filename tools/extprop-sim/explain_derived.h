// SPDX-License-Identifier: Apache-2.0
// explain's account of values that no property file holds as they end up:
// the ones the library derives (market name, display and experience
// versions, customization version, the my_bigball -> my_carrier renaming),
// and the sets a switch key selects. Every value shown is one the boot
// recorded: a batch, the store the batch found (replayed), a log record, a
// file the parser loaded.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "boot.h"

namespace extprop_sim {

// A file that set a property while the parser loaded it.
struct FileValue {
    std::string step;
    std::string file;
    std::string value;
};
using DefinitionsOf = std::function<std::vector<FileValue>(const std::string& name)>;

// Besides NAME itself, the properties whose files explain needs: a renamed
// value's source and the switch-key properties.
std::vector<std::string> ExplainInputs(const std::string& name);

// How the library derived NAME in each batch that carried it, with its
// inputs; "" for a name it doesn't derive.
std::string DerivedText(const BootConfig& config, const BootResult& result, const std::string& name,
                        const DefinitionsOf& definitions_of);

// For a file of a key-selected set (DIR/properties/KEY/SET/F.prop), the key
// that chose it and where the boot took the key from; "" for other files.
std::string KeyChoiceText(const BootConfig& config, const BootResult& result,
                          const std::string& file, const DefinitionsOf& definitions_of);

// A partition's file under its /mnt/vendor mount point, as under its root
// mount point: "/mnt/vendor/my_carrier/a.prop" -> "/my_carrier/a.prop".
std::string PartitionPath(const std::string& path);

}  // namespace extprop_sim
