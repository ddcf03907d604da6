// SPDX-License-Identifier: Apache-2.0
// What every fuzz target shares in reading its input and reporting what did not hold.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include <android-base/strings.h>

namespace fuzz_input {

// Ends the run with what did not hold: a finding.
[[noreturn]] inline void Fail(const std::string& what) {
    fprintf(stderr, "FINDING: %s\n", what.c_str());
    abort();
}

// One of |words|, as the input picks it.
template <size_t N>
std::string Pick(FuzzedDataProvider& in, const char* const (&words)[N]) {
    return words[in.ConsumeIntegralInRange<size_t>(0, N - 1)];
}

// Runs the checks the input picks, one after another, until the input is used up; |before|
// (when given) runs before each of them.
using Check = void (*)(FuzzedDataProvider&);
inline void RunChecks(FuzzedDataProvider& in, std::initializer_list<Check> checks,
                      void (*before)() = nullptr) {
    while (in.remaining_bytes() > 0) {
        if (before != nullptr) before();
        checks.begin()[in.ConsumeIntegralInRange<size_t>(0, checks.size() - 1)](in);
    }
}

// A sample of the input as fields: "\n"-separated lines of "<letter><index> <text>".
struct Field {
    char kind;
    size_t index;
    std::string text;  // "\n" written as the two characters \ and n
};

inline std::vector<Field> Fields(const uint8_t* data, size_t size) {
    std::vector<Field> fields;
    const std::string input(reinterpret_cast<const char*>(data), size);
    for (const std::string& line : android::base::Split(input, "\n")) {
        const size_t space = line.find(' ');
        if (line.size() < 2 || space == std::string::npos) continue;
        fields.push_back({line[0], strtoul(line.c_str() + 1, nullptr, 10),
                          android::base::StringReplace(line.substr(space + 1), "\\n", "\n", true)});
    }
    return fields;
}

}  // namespace fuzz_input
