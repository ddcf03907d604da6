#include "report.h"

#include "json.h"

namespace extprop_sim {
namespace {

std::string KindName(int kind) {
    return kind == kFilledMapKind ? "map" : "kind " + std::to_string(kind);
}

// Index of the step a record belongs to, or -1 for records outside the steps.
int StepIndex(const std::string& step) {
    if (step.empty() || step.find_first_not_of("0123456789") != std::string::npos) return -1;
    return std::stoi(step);
}

}  // namespace

char SeverityLetter(android::base::LogSeverity severity) {
    static constexpr char kLetters[] = "VDIWEFF";
    return severity >= 0 && severity < 7 ? kLetters[severity] : '?';
}

std::string BootReportText(const BootConfig& config, const BootResult& result) {
    const sandbox::Outcome& outcome = result.outcome;
    std::string out = "Booted " + config.tree + " with " + config.library + "\n";
    for (size_t i = 0; i < result.steps.size(); ++i) {
        out += "\n== " + result.steps[i].Describe() + "\n";
        for (const sandbox::Batch& batch : outcome.batches) {
            if (StepIndex(batch.step) != static_cast<int>(i)) continue;
            out += "-- " + KindName(batch.kind) + ", " + std::to_string(batch.props.size()) +
                   (batch.props.size() == 1 ? " property\n" : " properties\n");
            for (const auto& [name, value] : batch.props) out += "   " + name + "=" + value + "\n";
        }
        if (auto note = outcome.notes.find(std::to_string(i)); note != outcome.notes.end()) {
            out += "-- result: " + note->second + "\n";
        }
    }
    out += "\n== Properties after boot (" + std::to_string(outcome.properties.size()) + ")\n";
    for (const auto& [name, value] : outcome.properties) out += name + "=" + value + "\n";
    return out;
}

std::string BootReportJson(const BootConfig& config, const BootResult& result) {
    const sandbox::Outcome& outcome = result.outcome;
    std::string out = "{\n  \"tree\": " + JsonString(config.tree) +
                      ",\n  \"library\": " + JsonString(config.library) + ",\n  \"steps\": [";
    for (size_t i = 0; i < result.steps.size(); ++i) {
        const Step& step = result.steps[i];
        std::vector<std::string> args;
        for (const std::string& arg : step.args) args.push_back(JsonString(arg));
        out += std::string(i == 0 ? "\n" : ",\n") + "    {\"step\": " + JsonString(step.Describe());
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
    for (const sandbox::Batch& batch : outcome.batches) {
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
        out += ", \"properties\": " + JsonObject(batch.props, "    ") + "}";
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
