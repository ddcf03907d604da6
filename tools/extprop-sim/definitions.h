// SPDX-License-Identifier: Apache-2.0
// Every definition of every property a boot loaded: each file and line that
// defines it, in the order the boot loaded them, and which of them is the one
// init ended the boot with. Built only from what the boot recorded: the
// parser's "Loading properties" records, the loaded files' content as each
// step left it (read back inside the device root), the batches and the
// property store. Which value a file gives comes from the library's own
// parser; which definition wins from what init really set, so the model holds
// no second copy of the library's priority rules.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "boot.h"
#include "file_history.h"

namespace extprop_sim {

struct Definition {
    enum class State {
        kWins,           // the definition whose value init holds after boot
        kSameValue,      // shadowed, but it gives the value that won
        kShadowed,       // a value init doesn't end the boot with: dead
        kNotHandedOver,  // no batch carried the name: the library read it for itself
    };
    std::string file;                  // as the parser loaded it
    std::vector<std::string> also_as;  // the same file at its other mount point
    size_t line = 0;                   // from 1; 0 when the line can't be told
    std::string value;
    std::vector<int> steps;  // the steps that loaded it, in order
    State state = State::kShadowed;
};

struct PropertyDefinitions {
    std::vector<Definition> definitions;  // in the order the boot loaded them
    std::optional<size_t> winner;         // index into |definitions|
    std::optional<std::string> final_value;
    // The last batch whose value init set and kept; the provenance of a value
    // no file gave (a derived one), or nullopt.
    std::optional<size_t> batch;
};

struct DefinitionsModel {
    std::map<std::string, PropertyDefinitions> properties;  // by name
    // Loaded files whose content didn't travel back: path and size.
    std::vector<std::pair<std::string, size_t>> left_out;
};

// Before the boot: every loaded file travels back to |loaded|, which must
// outlive the boot. Turns VERBOSE records on (the parser's records of the
// files it loaded); DropVerboseRecords takes them out again.
void RecordEveryLoadedFile(BootConfig* config, LoadedFiles* loaded);
void DropVerboseRecords(sandbox::Outcome* outcome);

// Also says on stderr when the loaded files couldn't be brought back (the
// model is then empty).
DefinitionsModel BuildDefinitions(const BootResult& result);

// The partition a device file belongs to, whichever of its mount points it
// was read at: "my_region" for /mnt/vendor/my_region/a.prop and /my_region/a.prop.
std::string PartitionOf(const std::string& file);

// "file:line" (just "file" when the line is unknown).
std::string Place(const Definition& definition);
// "wins", "same value", "shadowed", "not handed to init".
const char* StateName(Definition::State state);

}  // namespace extprop_sim
