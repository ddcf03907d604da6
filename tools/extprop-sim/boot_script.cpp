// SPDX-License-Identifier: Apache-2.0
// Boot scripts: the steps of a boot, one a line.
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "boot.h"
#include "script_assertions.h"

namespace extprop_sim {
namespace {

// Splits a script line into words; "quoted text" is one word.
std::vector<std::string> SplitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, in_word = false;
    for (char c : line) {
        if (c == '"') {
            quoted = !quoted;
            in_word = true;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            if (in_word) words.push_back(word);
            word.clear();
            in_word = false;
        } else {
            word.push_back(c);
            in_word = true;
        }
    }
    if (in_word) words.push_back(word);
    return words;
}

struct Verb {
    const char* name;
    Step::Kind kind;
    size_t min_args, max_args;
};

// Every step but the operations; boot-sequence and the slots are parsed apart.
constexpr size_t kAny = 1000;
constexpr Verb kVerbs[] = {
        {"setprop", Step::Kind::kSetProp, 2, 2},
        {"sleep", Step::Kind::kSleep, 1, 1},
        {"write", Step::Kind::kWrite, 2, 2},
        {"wait-prop", Step::Kind::kWaitProp, 2, 3},
        {"wait-log", Step::Kind::kWaitLog, 1, 2},
        {"cota-boot", Step::Kind::kCotaBoot, 0, 0},
        {"host", Step::Kind::kHost, 1, 1},
        {"reboot", Step::Kind::kReboot, 0, 0},
        {"wipe-data", Step::Kind::kWipeData, 0, 0},
        {"ota", Step::Kind::kOta, 2, 2},
        {"sim-switch", Step::Kind::kSimSwitch, 1, 1},
        {"expect-prop", Step::Kind::kExpectProp, 2, 2},
        {"expect-no-prop", Step::Kind::kExpectNoProp, 1, 1},
        {"expect-file", Step::Kind::kExpectFile, 2, 2},
        {"expect-batch", Step::Kind::kExpectBatch, 3, kAny},
        {"expect-log", Step::Kind::kExpectLog, 2, 2},
        {"expect-no-log", Step::Kind::kExpectNoLog, 1, 1},
};

const Verb* FindVerb(const std::string& name) {
    for (const Verb& verb : kVerbs) {
        if (name == verb.name) return &verb;
    }
    return nullptr;
}

const char* VerbName(Step::Kind kind) {
    for (const Verb& verb : kVerbs) {
        if (kind == verb.kind) return verb.name;
    }
    return "";
}

bool IsMilliseconds(const std::string& text) {
    int ms;
    return android::base::ParseInt(text, &ms, 0);
}

std::string Unescaped(const std::string& text) {
    return android::base::StringReplace(text, "\\n", "\n", true);
}

// What a step's arguments must be beyond their count; "" when they are fine.
std::string ArgumentProblem(const Step& step) {
    const std::vector<std::string>& a = step.args;
    switch (step.kind) {
        case Step::Kind::kSleep:
            return IsMilliseconds(a[0]) ? "" : "sleep needs milliseconds, not '" + a[0] + "'";
        case Step::Kind::kWaitProp:
        case Step::Kind::kWaitLog: {
            const size_t ms = step.kind == Step::Kind::kWaitProp ? 2 : 1;
            return a.size() <= ms || IsMilliseconds(a[ms])
                           ? ""
                           : std::string(VerbName(step.kind)) + " waits milliseconds, not '" +
                                     a[ms] + "'";
        }
        case Step::Kind::kHost:
            return ParseHostMode(a[0]) ? "" : "host is vendor or aosp, not '" + a[0] + "'";
        case Step::Kind::kOta:
            return a[0].empty() || a[0].find('/') != std::string::npos || a[0] == "." ||
                                   a[0] == ".."
                           ? "ota needs a partition name (my_company), not '" + a[0] + "'"
                           : "";
        case Step::Kind::kExpectBatch: {
            int slot;
            if (!android::base::ParseInt(a[0], &slot) || OperationName(slot).empty()) {
                return "expect-batch needs a slot number from 2 to 12, not '" + a[0] + "'";
            }
            if (!ParseBatchKind(a[1])) {
                return "expect-batch needs a kind code or map, not '" + a[1] + "'";
            }
            for (size_t i = 2; i < a.size(); ++i) {
                if (a[i].find('=') == std::string::npos || a[i][0] == '=') {
                    return "expect-batch needs NAME=VALUE, not '" + a[i] + "'";
                }
            }
            return "";
        }
        case Step::Kind::kExpectLog:
            return ParseSeverity(a[0])
                           ? ""
                           : "expect-log needs a severity (I, INFO, ...), not '" + a[0] + "'";
        default:
            return "";
    }
}

// The operation steps: "slot N ARGS..." or an operation name with its arguments.
bool ParseSlot(const std::string& verb, Step* step, std::string* error) {
    int slot = -1;
    if (verb == "slot") {
        if (step->args.empty() || !android::base::ParseInt(step->args[0], &slot) ||
            OperationName(slot).empty()) {
            *error = "slot needs a slot number from 2 to 12";
            return false;
        }
        step->args.erase(step->args.begin());
    } else {
        slot = SlotOf(verb, step->args.size());
        if (slot < 0) {
            *error = "unknown step '" + verb + "' with " + std::to_string(step->args.size()) +
                     " argument(s)";
            return false;
        }
    }
    if (step->args.size() != SlotArgCount(slot)) {
        *error = "slot " + std::to_string(slot) + " (" + OperationName(slot) + ") takes " +
                 std::to_string(SlotArgCount(slot)) + " argument(s)";
        return false;
    }
    step->slot = slot;
    return true;
}

// Appends the steps one script line stands for: boot-sequence is init's
// boot sequence, and sim-switch is followed by the calls init makes then.
bool ParseLine(const std::vector<std::string>& words, int line, std::vector<Step>* steps,
               std::string* error) {
    const std::string& name = words[0];
    Step step{Step::Kind::kSlot, -1, std::vector<std::string>(words.begin() + 1, words.end()),
              line};
    if (name == "boot-sequence") {
        if (!step.args.empty()) {
            *error = "boot-sequence takes no argument";
            return false;
        }
        for (Step& boot_step : DefaultBootSteps()) {
            boot_step.line = line;
            steps->push_back(std::move(boot_step));
        }
        return true;
    }
    const Verb* verb = FindVerb(name);
    if (verb == nullptr) {
        if (!ParseSlot(name, &step, error)) return false;
        steps->push_back(std::move(step));
        return true;
    }
    const size_t count = step.args.size();
    if (count < verb->min_args || count > verb->max_args) {
        *error = name + " takes " +
                 (verb->max_args == kAny             ? "at least " + std::to_string(verb->min_args)
                  : verb->min_args == verb->max_args ? std::to_string(verb->min_args)
                                                     : std::to_string(verb->min_args) + " to " +
                                                               std::to_string(verb->max_args)) +
                 " argument(s)";
        return false;
    }
    step.kind = verb->kind;
    if (const std::string problem = ArgumentProblem(step); !problem.empty()) {
        *error = problem;
        return false;
    }
    if (step.kind == Step::Kind::kWrite || step.kind == Step::Kind::kExpectFile) {
        step.args[1] = Unescaped(step.args[1]);
    }
    const bool sim_switch = step.kind == Step::Kind::kSimSwitch;
    steps->push_back(std::move(step));
    if (sim_switch) {
        steps->push_back({Step::Kind::kSlot, 9, {}, line});
        steps->push_back({Step::Kind::kSlot, 10, {"propertiesOverrideSwitch"}, line});
    }
    return true;
}

}  // namespace

std::string Step::Describe() const {
    std::string text = kind == Kind::kSlot
                               ? "slot " + std::to_string(slot) + " " + OperationName(slot)
                               : VerbName(kind);
    // A write's text can be long; the report shows what the file holds after.
    if (kind == Kind::kWrite) return text + " " + args[0];
    for (const std::string& arg : args) {
        const bool quote = arg.empty() || arg.find_first_of(" \t") != std::string::npos;
        text += " " + (quote ? "\"" + arg + "\"" : arg);
    }
    return text;
}

void ResolveScriptPaths(const std::string& script_file, std::vector<Step>* steps) {
    struct stat st;
    if (stat(script_file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;
    const std::filesystem::path dir = std::filesystem::path(script_file).parent_path();
    for (Step& step : *steps) {
        if (step.kind == Step::Kind::kOta && !step.args[1].empty() && step.args[1][0] != '/') {
            step.args[1] = (dir / step.args[1]).lexically_normal().string();
        }
    }
}

bool ParseScript(const std::string& text, std::vector<Step>* steps, std::string* error) {
    std::istringstream in(text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::vector<std::string> words = SplitWords(android::base::Trim(line));
        if (words.empty() || words[0][0] == '#') continue;
        if (!ParseLine(words, number, steps, error)) {
            *error = "line " + std::to_string(number) + ": " + *error;
            return false;
        }
    }
    return true;
}

}  // namespace extprop_sim
