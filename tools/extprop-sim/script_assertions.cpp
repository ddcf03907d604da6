// SPDX-License-Identifier: Apache-2.0
#include "script_assertions.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "boot_sequence.h"
#include "hostplatform/property_store.h"
#include "printable.h"

namespace extprop_sim {
namespace {

using Kind = Step::Kind;

constexpr char kPassed[] = "passed";
constexpr char kFailed[] = "failed";
constexpr char kTimedOut[] = "timed out";
constexpr const char* kSeverityNames[] = {"VERBOSE", "DEBUG", "INFO", "WARNING", "ERROR", "FATAL"};

std::string SeenKey(const std::string& note_key) {
    return note_key + " seen";
}

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

std::string PropertyText(const std::string& name, const std::optional<std::string>& value) {
    return value && !value->empty() ? name + "=" + Quoted(*value) : name + " unset";
}

std::string SeverityName(android::base::LogSeverity severity) {
    return severity == android::base::FATAL_WITHOUT_ABORT
                   ? "FATAL"
                   : kSeverityNames[std::min<int>(severity, 5)];
}

// The records and batches that belong to the boot of step |index|, up to it.
struct BootWindow {
    size_t first;  // the boot's first step
    size_t last;   // the assertion's step
    bool Holds(const std::string& label) const {
        // The object's making in the first boot comes before its steps.
        const int index = label == "factory" && first == 0 ? 0 : StepIndex(label);
        return index >= static_cast<int>(first) && index <= static_cast<int>(last);
    }
};

BootWindow WindowOf(const std::vector<Step>& steps, size_t index) {
    size_t first = index;
    while (first > 0 && !StartsBoot(steps[first])) --first;
    return {first, index};
}

bool CheckBatch(const BootResult& result, const Step& step, const BootWindow& window,
                std::string* seen) {
    const int slot = std::stoi(step.args[0]);
    const int kind = *ParseBatchKind(step.args[1]);
    const std::vector<std::string> pairs(step.args.begin() + 2, step.args.end());
    std::vector<std::string> found;
    for (const sandbox::Batch& batch : result.outcome.batches) {
        const int index = StepIndex(batch.step);
        if (!window.Holds(batch.step) || index < 0 || result.steps[index].slot != slot ||
            batch.kind != kind) {
            continue;
        }
        bool holds_all = true;
        std::vector<std::string> values;
        for (const std::string& pair : pairs) {
            const size_t eq = pair.find('=');
            const std::string name = pair.substr(0, eq);
            auto it = batch.props.find(name);
            holds_all = holds_all && it != batch.props.end() && it->second == pair.substr(eq + 1);
            values.push_back(it == batch.props.end() ? name + " absent"
                                                     : name + "=" + Quoted(it->second));
        }
        if (holds_all) return true;
        found.push_back("step " + batch.step + ": " +
                        (values.empty() ? "empty" : android::base::Join(values, ", ")));
    }
    *seen = found.empty() ? "no such batch in this boot"
                          : "batches of that slot and kind: " + android::base::Join(found, "; ");
    return false;
}

bool CheckLog(const BootResult& result, const Step& step, const BootWindow& window,
              std::string* seen) {
    const bool wanted = step.kind == Kind::kExpectLog;
    const std::string& text = step.args[wanted ? 1 : 0];
    const auto severity = wanted ? ParseSeverity(step.args[0]) : std::nullopt;
    std::vector<std::string> holding;
    for (const sandbox::LogRecord& record : result.outcome.logs) {
        if (!window.Holds(record.step) || record.message.find(text) == std::string::npos) {
            continue;
        }
        if (wanted && record.severity == *severity) return true;
        holding.push_back(SeverityName(record.severity) + " " + Quoted(record.message));
    }
    if (!wanted && holding.empty()) return true;
    *seen = holding.empty() ? "no record holding it in this boot"
                            : android::base::Join(holding, "; ");
    return false;
}

std::string Expected(const Step& step) {
    const auto& a = step.args;
    switch (step.kind) {
        case Kind::kExpectProp:
            return PropertyText(a[0], a[1]);
        case Kind::kExpectNoProp:
            return a[0] + " unset";
        case Kind::kExpectFile:
            return a[0] + " holding " + Quoted(a[1]);
        case Kind::kExpectBatch:
            return "a " + (a[1] == "map" ? std::string("filled map") : "kind " + a[1] + " batch") +
                   " from slot " + a[0] + " holding " +
                   android::base::Join(std::vector<std::string>(a.begin() + 2, a.end()), ", ");
        case Kind::kExpectLog:
            return "a " + SeverityName(*ParseSeverity(a[0])) + " record holding " + Quoted(a[1]);
        case Kind::kExpectNoLog:
            return "no record holding " + Quoted(a[0]);
        case Kind::kWaitProp:
            return PropertyText(a[0], a[1]) + " within " +
                   (a.size() > 2 ? a[2] : std::to_string(kDefaultWaitMs)) + " ms";
        case Kind::kWaitLog:
            return "a record holding " + Quoted(a[0]) + " within " +
                   (a.size() > 1 ? a[1] : std::to_string(kDefaultWaitMs)) + " ms";
        default:
            return "";
    }
}

}  // namespace

std::optional<android::base::LogSeverity> ParseSeverity(const std::string& text) {
    static constexpr android::base::LogSeverity kSeverities[] = {
            android::base::VERBOSE, android::base::DEBUG, android::base::INFO,
            android::base::WARNING, android::base::ERROR, android::base::FATAL};
    for (size_t i = 0; i < std::size(kSeverityNames); ++i) {
        if (text == kSeverityNames[i] || text == std::string(1, kSeverityNames[i][0])) {
            return kSeverities[i];
        }
    }
    return std::nullopt;
}

std::optional<int> ParseBatchKind(const std::string& text) {
    int kind;
    if (text == "map") return kFilledMapKind;
    if (android::base::ParseInt(text, &kind, 0)) return kind;
    return std::nullopt;
}

void CheckInDevice(const Step& step, sandbox::Context& ctx, const std::string& note_key) {
    const auto& a = step.args;
    bool passed = false;
    std::string seen;
    if (step.kind == Kind::kExpectFile) {
        std::string content;
        if (android::base::ReadFileToString(a[0], &content, true)) {
            passed = content == a[1];
            seen = a[0] + " holding " + Quoted(content);
        } else {
            seen = a[0] + ": " + strerror(errno);
        }
    } else {
        const auto value = hostplatform::GetProperty(a[0]);
        const bool set = value && !value->empty();
        passed = step.kind == Kind::kExpectNoProp ? !set : set ? *value == a[1] : a[1].empty();
        seen = PropertyText(a[0], value);
    }
    ctx.Note(note_key, passed ? kPassed : kFailed);
    if (!passed) ctx.Note(SeenKey(note_key), seen);
}

void NoteWaitTimeout(const Step& step, sandbox::Context& ctx, const std::string& note_key) {
    ctx.Note(note_key, kTimedOut);
    ctx.Note(SeenKey(note_key),
             step.kind == Kind::kWaitProp
                     ? PropertyText(step.args[0], hostplatform::GetProperty(step.args[0])) +
                               " when the wait ended"
                     : "no record holding it");
}

std::vector<AssertionFailure> CheckScript(BootResult* result) {
    std::vector<AssertionFailure> failures;
    PropertyMap& notes = result->outcome.notes;
    for (size_t i = 0; i < result->steps.size(); ++i) {
        const Step& step = result->steps[i];
        const std::string key = std::to_string(i);
        std::string seen;
        switch (step.kind) {
            case Kind::kExpectBatch:
            case Kind::kExpectLog:
            case Kind::kExpectNoLog: {
                // A boot that ended early never reached the step.
                if (!result->outcome.ran) break;
                const BootWindow window = WindowOf(result->steps, i);
                const bool passed = step.kind == Kind::kExpectBatch
                                            ? CheckBatch(*result, step, window, &seen)
                                            : CheckLog(*result, step, window, &seen);
                notes[key] = passed ? kPassed : kFailed;
                if (!passed) failures.push_back({i, Expected(step), seen});
                break;
            }
            case Kind::kExpectProp:
            case Kind::kExpectNoProp:
            case Kind::kExpectFile:
            case Kind::kWaitProp:
            case Kind::kWaitLog:
                if (auto verdict = notes.find(key);
                    verdict != notes.end() &&
                    (verdict->second == kFailed || verdict->second == kTimedOut)) {
                    failures.push_back({i, Expected(step), notes[SeenKey(key)]});
                }
                break;
            default:
                break;
        }
    }
    return failures;
}

std::string FailureText(const BootResult& result, const AssertionFailure& failure) {
    const Step& step = result.steps[failure.step];
    return "line " + std::to_string(step.line) + ": " + Printable(step.Describe()) +
           "\n  expected: " + Printable(failure.expected) + "\n  seen: " + Printable(failure.seen) +
           "\n";
}

}  // namespace extprop_sim
