// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include "batch_effects.h"
#include "boot_sequence.h"
#include "init_sink.h"
#include "json.h"
#include "printable.h"

namespace extprop_sim {
namespace {

std::string KindName(int kind) {
    return kind == kFilledMapKind ? "map" : "kind " + std::to_string(kind);
}

std::string Count(size_t n, const char* what) {
    return n == 0 ? "" : ", " + std::to_string(n) + " " + what;
}

// Appends to |out| rather than returning: a batch can hold every line of a
// large build.prop, and its text needn't exist twice.
// Writes what |out| holds to |file| once it has grown past a buffer's worth:
// a batch of half a million entries never stands whole in memory.
void Spill(std::string* out, FILE* file) {
    constexpr size_t kSpillAt = 1 << 20;
    if (out->size() < kSpillAt) return;
    fwrite(out->data(), 1, out->size(), file);
    out->clear();
}

void AppendBatchText(const sandbox::Batch& batch, const BatchEffects& effects,
                     const PropertyMap& final_store, std::string* out, FILE* file) {
    size_t counts[5] = {};
    for (const Effect& effect : effects) ++counts[effect.what];
    *out += "-- " + KindName(batch.kind) + ", " + std::to_string(batch.props.size()) +
            (batch.props.size() == 1 ? " property" : " properties") + Count(counts[0], "new") +
            Count(counts[1], "changed") + Count(counts[2], "already set") +
            Count(counts[3], "cleared") + Count(counts[4], "refused") + "\n";
    size_t entry = 0;
    for (const auto& [name, value] : batch.props) {
        const Effect& effect = effects[entry++];
        static constexpr char kMarks[] = "+~=-!";
        *out += ' ';
        *out += kMarks[effect.what];
        *out += ' ';
        AppendPrintable(name, out);
        *out += '=';
        AppendPrintable(value, out);
        if (effect.what == Effect::kChanged || effect.what == Effect::kCleared) {
            *out += "  (was " + Printable(std::string(effect.before)) + ")";
        }
        if (effect.what == Effect::kRefused) {
            *out += "  (refused: " + Printable(std::string(effect.reason)) + ")";
        }
        auto final_value = final_store.find(name);
        const bool final_set = final_value != final_store.end();
        const std::string_view left =
                effect.what == Effect::kRefused ? effect.before : std::string_view(value);
        if (!final_set ? !left.empty() : final_value->second != left) {
            *out += !final_set ? "  (final: unset)"
                               : "  (final: " + Printable(final_value->second) + ")";
        }
        *out += '\n';
        Spill(out, file);
    }
}

const char* EffectName(Effect::What what) {
    static constexpr const char* kNames[] = {"new", "changed", "same", "cleared", "refused"};
    return kNames[what];
}

// One entry of a batch: what init did with it, what it replaced, and what
// the property holds after boot (null: unset).
Json EntryJson(const std::string& name, const std::string& value, const Effect& effect,
               const PropertyMap& final_store) {
    Json entry = Json::object();
    PutBytes(&entry, "name", name);
    PutBytes(&entry, "value", value);
    entry["effect"] = EffectName(effect.what);
    const bool replaced = effect.what == Effect::kChanged || effect.what == Effect::kCleared ||
                          (effect.what == Effect::kRefused && !effect.before.empty());
    PutBytes(&entry, "previous",
             replaced ? std::optional(std::string(effect.before)) : std::nullopt);
    PutBytes(&entry, "reason",
             effect.what == Effect::kRefused ? std::optional(std::string(effect.reason))
                                             : std::nullopt);
    auto final_value = final_store.find(name);
    PutBytes(&entry, "final",
             final_value == final_store.end() ? std::nullopt : std::optional(final_value->second));
    return entry;
}

}  // namespace

Json StepJson(const BootResult& result, int index) {
    Json json = Json::object();
    const bool known = index >= 0 && index < static_cast<int>(result.steps.size());
    json["step"] = known ? Json(index) : Json(nullptr);
    const Step* step = known ? &result.steps[index] : nullptr;
    const bool slot = step != nullptr && step->kind == Step::Kind::kSlot;
    json["slot"] = slot ? Json(step->slot) : Json(nullptr);
    json["operation"] = slot ? Json(OperationName(step->slot)) : Json(nullptr);
    return json;
}

Json ContextsJson(const sandbox::Outcome& outcome) {
    const std::vector<std::string> files = ContextsFilesInUse(outcome);
    return files.empty() ? Json(nullptr) : BytesList(files);
}

char SeverityLetter(android::base::LogSeverity severity) {
    static constexpr char kLetters[] = "VDIWEFF";
    return severity >= 0 && severity < 7 ? kLetters[severity] : '?';
}

void WriteBootReportText(const BootConfig& config, const BootResult& result, FILE* file) {
    const sandbox::Outcome& outcome = result.outcome;
    const auto effects = ReplayBatches(config, result);
    std::string out = "Booted " + Printable(config.tree) + " with " + Printable(config.library) +
                      "\nInit: " + HostModeName(config.init.host) +
                      " host; property contexts: " + Printable(ContextsInUse(outcome)) +
                      "\nBatch entries: + new, ~ changed, = already set, - cleared, ! refused by"
                      " init; (final: ...) when the property ends the boot otherwise.\n";
    const std::vector<int> boots = BootNumbers(result.steps);
    for (size_t i = 0; i < result.steps.size(); ++i) {
        if (boots.back() > 1 && (i == 0 || boots[i] != boots[i - 1])) {
            out += "\n=== Boot " + std::to_string(boots[i]) + "\n";
        }
        out += "\n== " + Printable(result.steps[i].Describe()) + "\n";
        for (size_t b = 0; b < outcome.batches.size(); ++b) {
            if (StepIndex(outcome.batches[b].step) != static_cast<int>(i)) continue;
            AppendBatchText(outcome.batches[b], effects[b], outcome.properties, &out, file);
        }
        if (auto note = outcome.notes.find(std::to_string(i)); note != outcome.notes.end()) {
            out += "-- result: " + Printable(note->second) + "\n";
        }
    }
    out += "\n== Properties after boot (" + std::to_string(outcome.properties.size()) + ")\n";
    for (const auto& [name, value] : outcome.properties) {
        AppendPrintable(name, &out);
        out += '=';
        AppendPrintable(value, &out);
        out += '\n';
        Spill(&out, file);
    }
    fwrite(out.data(), 1, out.size(), file);
}

std::string BootReportJson(const BootConfig& config, const BootResult& result) {
    const sandbox::Outcome& outcome = result.outcome;
    const auto effects = ReplayBatches(config, result);
    Json document = JsonDocument("boot");
    document["host"] = HostModeName(config.init.host);
    document["property_contexts"] = ContextsJson(outcome);
    document["seeded"] = PropertyList(config.properties);
    document["steps"] = Json::array();
    const std::vector<int> boots = BootNumbers(result.steps);
    for (size_t i = 0; i < result.steps.size(); ++i) {
        const auto note = outcome.notes.find(std::to_string(i));
        Json step = StepJson(result, static_cast<int>(i));
        step["boot"] = boots[i];
        PutBytes(&step, "description", result.steps[i].Describe());
        step["args"] = BytesList(result.steps[i].args);
        PutBytes(&step, "result",
                 note == outcome.notes.end() ? std::nullopt : std::optional(note->second));
        document["steps"].push_back(std::move(step));
    }
    document["batches"] = Json::array();
    for (size_t b = 0; b < outcome.batches.size(); ++b) {
        const sandbox::Batch& batch = outcome.batches[b];
        Json json = StepJson(result, StepIndex(batch.step));
        json["kind"] = batch.kind == kFilledMapKind ? Json(nullptr) : Json(batch.kind);
        json["filled_map"] = batch.kind == kFilledMapKind;
        json["entries"] = Json::array();
        size_t entry = 0;
        for (const auto& [name, value] : batch.props) {
            json["entries"].push_back(
                    EntryJson(name, value, effects[b][entry++], outcome.properties));
        }
        document["batches"].push_back(std::move(json));
    }
    document["properties"] = PropertyList(outcome.properties);
    document["log"] = Json::array();
    for (const sandbox::LogRecord& record : outcome.logs) {
        const int step = StepIndex(record.step);
        document["log"].push_back(
                LogRecordJson(record, step < 0 ? std::nullopt : std::optional(step)));
    }
    return JsonText(document);
}

}  // namespace extprop_sim
