// SPDX-License-Identifier: Apache-2.0
// Boot scripts: the steps of a boot, one a line.
#include <sstream>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "boot.h"

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

}  // namespace

bool ParseScript(const std::string& text, std::vector<Step>* steps, std::string* error) {
    std::istringstream in(text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::vector<std::string> words = SplitWords(android::base::Trim(line));
        if (words.empty() || words[0][0] == '#') continue;
        const std::string where = "line " + std::to_string(number) + ": ";
        const std::string verb = words[0];
        std::vector<std::string> args(words.begin() + 1, words.end());
        Step step{Step::Kind::kSlot, -1, args};
        auto need = [&](size_t min, size_t max) {
            if (args.size() >= min && args.size() <= max) return true;
            *error = where + verb + " takes " +
                     (min == max ? std::to_string(min)
                                 : std::to_string(min) + " to " + std::to_string(max)) +
                     " argument(s)";
            return false;
        };
        if (verb == "setprop") {
            if (!need(2, 2)) return false;
            step.kind = Step::Kind::kSetProp;
        } else if (verb == "sleep") {
            int ms;
            if (!need(1, 1)) return false;
            if (!android::base::ParseInt(args[0], &ms, 0)) {
                *error = where + "sleep needs milliseconds, not '" + args[0] + "'";
                return false;
            }
            step.kind = Step::Kind::kSleep;
        } else if (verb == "write") {
            if (!need(2, 2)) return false;
            step.kind = Step::Kind::kWrite;
            step.args[1] = android::base::StringReplace(args[1], "\\n", "\n", true);
        } else if (verb == "wait-prop") {
            if (!need(2, 3)) return false;
            step.kind = Step::Kind::kWaitProp;
        } else if (verb == "wait-log") {
            if (!need(1, 2)) return false;
            step.kind = Step::Kind::kWaitLog;
        } else if (verb == "host") {
            if (!need(1, 1)) return false;
            if (!ParseHostMode(args[0])) {
                *error = where + "host is vendor or aosp, not '" + args[0] + "'";
                return false;
            }
            step.kind = Step::Kind::kHost;
        } else if (verb == "cota-boot") {
            if (!need(0, 0)) return false;
            step.kind = Step::Kind::kCotaBoot;
        } else {
            int slot = -1;
            if (verb == "slot") {
                if (args.empty() || !android::base::ParseInt(args[0], &slot) ||
                    OperationName(slot).empty()) {
                    *error = where + "slot needs a slot number from 2 to 12";
                    return false;
                }
                step.args.erase(step.args.begin());
            } else {
                slot = SlotOf(verb, args.size());
                if (slot < 0) {
                    *error = where + "unknown step '" + verb + "' with " +
                             std::to_string(args.size()) + " argument(s)";
                    return false;
                }
            }
            if (step.args.size() != SlotArgCount(slot)) {
                *error = where + "slot " + std::to_string(slot) + " (" + OperationName(slot) +
                         ") takes " + std::to_string(SlotArgCount(slot)) + " argument(s)";
                return false;
            }
            step.slot = slot;
        }
        steps->push_back(std::move(step));
    }
    return true;
}

}  // namespace extprop_sim
