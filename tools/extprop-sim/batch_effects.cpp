// SPDX-License-Identifier: Apache-2.0
#include "batch_effects.h"

#include <algorithm>

#include <optional>

#include "boot_sequence.h"
#include "init_sink.h"

namespace extprop_sim {
namespace {

// Sets a property as the host's store does: an empty value clears it.
Effect Apply(PropertyMap* store, const std::string& name, const std::string& value,
             const std::optional<std::string>& refusal = std::nullopt) {
    // One lookup per entry: a batch can hold every line of a large build.prop.
    auto it = store->lower_bound(name);
    const bool present = it != store->end() && it->first == name;
    const std::string before = present ? it->second : "";
    if (refusal) return {Effect::kRefused, before, *refusal};
    if (value.empty()) {
        if (!present) return {Effect::kSame, "", ""};
        store->erase(it);
        return {Effect::kCleared, before, ""};
    }
    if (!present) {
        store->emplace_hint(it, name, value);
        return {Effect::kNew, "", ""};
    }
    if (before == value) return {Effect::kSame, before, ""};
    it->second = value;
    return {Effect::kChanged, before, ""};
}

}  // namespace

std::vector<BatchEffects> ReplayBatches(const BootConfig& config, const BootResult& result,
                                        PropertyMap* store_before, size_t batch_to_stop) {
    PropertyMap store;
    for (const auto& [name, value] : config.properties) Apply(&store, name, value);
    std::vector<BatchEffects> effects;
    size_t replayed = 0;  // steps whose setprop is in the store
    for (const sandbox::Batch& batch : result.outcome.batches) {
        // A setprop step sends no batch: those before the batch's step came first.
        const int index = StepIndex(batch.step);
        for (; index > 0 && replayed < std::min<size_t>(index, result.steps.size()); ++replayed) {
            const Step& step = result.steps[replayed];
            if (step.kind == Step::Kind::kSetProp) Apply(&store, step.args[0], step.args[1]);
            if (step.kind == Step::Kind::kSimSwitch) {
                Apply(&store, kSimSwitchCurrentProperty, step.args[0]);
            }
            if (StartsBoot(step)) store = PropertiesAtBoot(config.properties, store, &step);
        }
        if (store_before != nullptr && effects.size() == batch_to_stop) {
            *store_before = std::move(store);
            return effects;
        }
        BatchEffects& batch_effects = effects.emplace_back();
        batch_effects.reserve(batch.props.size());
        const size_t number = effects.size() - 1;
        for (const auto& [name, value] : batch.props) {
            batch_effects.push_back(
                    Apply(&store, name, value, RefusalOf(result.outcome, number, name)));
        }
    }
    return effects;
}

}  // namespace extprop_sim
