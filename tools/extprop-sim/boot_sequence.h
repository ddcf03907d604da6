// SPDX-License-Identifier: Apache-2.0
// Boots in sequence: a script's reboot, wipe-data and ota steps restart the
// device. Each boot is a fresh sandboxed process over the same device root,
// so the library is loaded anew (a new object, no bind thread left over)
// while what earlier boots wrote stays in the root's writable layer. The
// property store starts again from the seeded properties and the persist.*
// properties of the boot before; the steps that follow a restart are what
// the new boot runs (boot-sequence: init's).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "boot.h"
#include "sandbox.h"

namespace extprop_sim {

// reboot, wipe-data or ota.
bool StartsBoot(const Step& step);

// A persist.* property: kept across a reboot, emptied by wipe-data.
bool IsPersistent(std::string_view name);

// The boot (from 1) that each step runs in.
std::vector<int> BootNumbers(const std::vector<Step>& steps);

// The property store a boot starts with: the seeded properties, with the
// persist.* properties the boot before ended with over them, unless the
// restart wiped the data partition (|restart| is null for the first boot).
// |Store| is PropertyMap, or a map of views into longer-lived strings.
template <typename Store>
Store PropertiesAtBoot(const PropertyMap& seeded, const Store& before, const Step* restart) {
    Store properties(seeded.begin(), seeded.end());
    if (restart == nullptr || restart->kind == Step::Kind::kWipeData) return properties;
    for (const auto& [name, value] : before) {
        if (IsPersistent(name)) properties[name] = value;
    }
    return properties;
}

// The content of a directory on the host, to be laid over a partition.
struct PartitionImage {
    struct Entry {
        std::string path;  // relative to the image's top
        char type;         // 'd', 'f' or 'l'
        mode_t mode;
        std::string data;  // file content or link target
    };
    std::string partition;  // device path: "/my_company"
    std::vector<Entry> entries;
};

// Reads an ota step's directory, on the host before the boot.
bool ReadPartitionImage(const Step& ota, PartitionImage* image, std::string* error);

// Inside the device, at the start of the boot a restart step begins: the data
// partition emptied, or the partition's content replaced. Problems become the
// step's note.
void RestartDevice(const Step& restart, const PartitionImage& image, sandbox::Context& ctx,
                   const std::string& note_key);

// Inside the device: what the system records when a SIM of another operator
// is found: the current switch key on the reserve partition and as
// sys.sim.switch.current.
void SwitchSim(const std::string& key, sandbox::Context& ctx, const std::string& note_key);

// The property a sim-switch step sets; for replaying the store on the host.
extern const char kSimSwitchCurrentProperty[];

// Joins the outcome of the next boot to the outcomes of the boots before.
void AppendBoot(sandbox::Outcome* all, sandbox::Outcome next);

}  // namespace extprop_sim
