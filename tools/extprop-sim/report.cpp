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
void AppendBatchText(const sandbox::Batch& batch, const BatchEffects& effects,
                     const PropertyMap& final_store, std::string* out) {
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
            *out += "  (was " + Printable(effect.before) + ")";
        }
        if (effect.what == Effect::kRefused) {
            *out += "  (refused: " + Printable(effect.reason) + ")";
        }
        auto final_value = final_store.find(name);
        const bool final_set = final_value != final_store.end();
        const std::string& left = effect.what == Effect::kRefused ? effect.before : value;
        if (!final_set ? !left.empty() : final_value->second != left) {
            *out += !final_set ? "  (final: unset)"
                               : "  (final: " + Printable(final_value->second) + ")";
        }
        *out += '\n';
    }
}

std::string JsonNames(const PropertyMap& props, const BatchEffects& effects) {
    std::vector<std::string> names;
    size_t entry = 0;
    for (const auto& [name, value] : props) {
        const Effect::What what = effects[entry++].what;
        if (what == Effect::kNew || what == Effect::kChanged || what == Effect::kCleared) {
            names.push_back(JsonString(name));
        }
    }
    return JsonArray(names);
}

}  // namespace

char SeverityLetter(android::base::LogSeverity severity) {
    static constexpr char kLetters[] = "VDIWEFF";
    return severity >= 0 && severity < 7 ? kLetters[severity] : '?';
}

std::string BootReportText(const BootConfig& config, const BootResult& result) {
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
            AppendBatchText(outcome.batches[b], effects[b], outcome.properties, &out);
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
    }
    return out;
}

std::string BootReportJson(const BootConfig& config, const BootResult& result) {
    const sandbox::Outcome& outcome = result.outcome;
    const auto effects = ReplayBatches(config, result);
    std::string out = "{\n  \"tree\": " + JsonString(config.tree) +
                      ",\n  \"library\": " + JsonString(config.library) +
                      ",\n  \"host\": " + JsonString(HostModeName(config.init.host)) +
                      ",\n  \"property_contexts\": " + JsonString(ContextsInUse(outcome)) +
                      ",\n  \"seeded\": " + JsonObject(config.properties, "  ") +
                      ",\n  \"steps\": [";
    const std::vector<int> boots = BootNumbers(result.steps);
    for (size_t i = 0; i < result.steps.size(); ++i) {
        const Step& step = result.steps[i];
        std::vector<std::string> args;
        for (const std::string& arg : step.args) args.push_back(JsonString(arg));
        out += std::string(i == 0 ? "\n" : ",\n") + "    {\"index\": " + std::to_string(i) +
               ", \"boot\": " + std::to_string(boots[i]) +
               ", \"step\": " + JsonString(step.Describe());
        if (step.kind == Step::Kind::kSlot) {
            out += ", \"slot\": " + std::to_string(step.slot) +
                   ", \"operation\": " + JsonString(OperationName(step.slot));
        }
        out += ", \"args\": " + JsonArray(args);
        if (auto note = outcome.notes.find(std::to_string(i)); note != outcome.notes.end()) {
            out += ", \"result\": " + JsonString(note->second);
        }
        out += "}";
    }
    out += "\n  ],\n  \"batches\": [";
    const char* separator = "\n";
    for (size_t b = 0; b < outcome.batches.size(); ++b) {
        const sandbox::Batch& batch = outcome.batches[b];
        const int index = StepIndex(batch.step);
        const Step* step = index >= 0 && index < static_cast<int>(result.steps.size())
                                   ? &result.steps[index]
                                   : nullptr;
        out += separator;
        separator = ",\n";
        out += "    {\"step\": " + std::to_string(index);
        if (step != nullptr && step->kind == Step::Kind::kSlot) {
            out += ", \"slot\": " + std::to_string(step->slot) +
                   ", \"operation\": " + JsonString(OperationName(step->slot));
        }
        out += batch.kind == kFilledMapKind ? ", \"kind\": null, \"filled_map\": true"
                                            : ", \"kind\": " + std::to_string(batch.kind);
        out += ", \"changed\": " + JsonNames(batch.props, effects[b]);
        PropertyMap refused;
        size_t entry = 0;
        for (const auto& [name, value] : batch.props) {
            const Effect& effect = effects[b][entry++];
            if (effect.what == Effect::kRefused) refused[name] = effect.reason;
        }

        out += ", \"properties\": " + JsonObject(batch.props, "    ");
        out += ", \"refused\": " + JsonObject(refused, "    ") + "}";
    }
    out += "\n  ],\n  \"properties\": " + JsonObject(outcome.properties, "  ");
    out += ",\n  \"log\": [";
    separator = "\n";
    for (const sandbox::LogRecord& record : outcome.logs) {
        out += separator;
        separator = ",\n";
        out += "    {\"step\": " + std::to_string(StepIndex(record.step)) + ", \"severity\": \"" +
               SeverityLetter(record.severity) + "\", \"file\": " + JsonString(record.file) +
               ", \"line\": " + std::to_string(record.line) +
               ", \"message\": " + JsonString(record.message) + "}";
    }
    out += "\n  ]\n}\n";
    return out;
}

}  // namespace extprop_sim
