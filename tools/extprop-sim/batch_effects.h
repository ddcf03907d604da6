// SPDX-License-Identifier: Apache-2.0
// What each batch of a boot did to the property store, replayed from the
// batches on the properties the boot started with.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "boot.h"

namespace extprop_sim {

// Views into the boot's own strings (its seeds, steps, batches and notes),
// which outlive the effects: a batch can hold every line of a large build.prop.
struct Effect {
    enum What { kNew, kChanged, kSame, kCleared, kRefused } what;
    std::string_view before;  // the value the entry replaced or cleared
    std::string_view reason;  // why init refused it
};

// One effect per entry of a batch, in the batch's (name) order.
using BatchEffects = std::vector<Effect>;

// The effect of each entry of each batch of |result|, in batch order. The
// store starts with the seeded properties and takes the script's setprop
// steps; what the library sets itself is not seen. Refusals are init's, as
// the device reported them.
// With |store_before| and |batch|: stops before that batch, leaving the store
// as the batch found it.
std::vector<BatchEffects> ReplayBatches(const BootConfig& config, const BootResult& result,
                                        PropertyMap* store_before = nullptr, size_t batch = 0);

}  // namespace extprop_sim
