// SPDX-License-Identifier: Apache-2.0
// The property-file readers: file 0 against a model of both readers (imports defused there),
// then the parser over a small tree of files that import each other.
//
// The model reads a line as the parser does: leading whitespace skipped, a "#" line skipped,
// trailing whitespace trimmed from the line as its bytes stand, then a NUL byte ends the line's
// text (a blank before it is kept). The loader keeps the last value of a name and logs each
// change of value; load_property_from_file returns the first line that begins with the name
// (a prefix) and holds a "=".
//
// Input: up to four files separated by "\n;;\n". In file i a line "@<digit><rest>" becomes an
// import of a later file j > i (so the tree has no cycles; the parser itself has no depth
// limit), "@u<rest>" an import whose name can't be expanded and "@m<rest>" one of a missing
// file; <rest> follows the name as written (blanks, nested filter). At most three such lines
// per file become imports, which bounds the work per input. Any other line the parser would take
// for an import is defused.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>

#include "fuzz_input.h"
#include "utils.h"

static std::string g_dir;

// WARNING messages the library logged since the last call.
static std::vector<std::string> g_warnings;

namespace {

using fuzz_input::Fail;

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

struct Line {
    std::string name, value;
};

// The property lines of |content| (no import lines), each as name and value.
std::vector<Line> ModelLines(const std::string& content) {
    std::vector<Line> lines;
    for (std::string text : android::base::Split(content, "\n")) {
        size_t begin = 0;
        while (begin < text.size() && IsSpace(text[begin])) ++begin;
        text.erase(0, begin);
        if (text.empty() || text[0] == '#') continue;
        while (text.size() > 1 && IsSpace(text.back())) text.pop_back();
        text = text.substr(0, text.find('\0'));
        const size_t eq = text.find('=');
        if (eq == std::string::npos) continue;
        std::string name = text.substr(0, eq), value = text.substr(eq + 1);
        while (!name.empty() && IsSpace(name.back())) name.pop_back();
        size_t skip = 0;
        while (skip < value.size() && IsSpace(value[skip])) ++skip;
        lines.push_back({name, value.substr(skip)});
    }
    return lines;
}

bool Accepts(const std::string& filter, const std::string& name) {
    if (filter.empty()) return true;
    if (filter.back() == '*') return name.compare(0, filter.size() - 1, filter, 0, filter.size() - 1) == 0;
    return name == filter;
}

// File 0 alone, against the model: the loader with and without a filter, and single lookups.
void CheckAgainstModel(const std::string& path, const std::string& content) {
    for (const std::string filter : {"", "ro.*", "ro.a", "*"}) {
        PropertyMap expected = {{"ro.pre", "set"}}, loaded = expected;
        std::vector<std::string> overrides;
        for (const Line& line : ModelLines(content)) {
            if (!Accepts(filter, line.name)) continue;
            auto it = expected.find(line.name);
            if (it != expected.end() && it->second != line.value) {
                overrides.push_back("Overriding previous 'ro.' property '" + line.name + "':'" +
                                    it->second + "' with new value '" + line.value + "'");
            }
            expected[line.name] = line.value;
        }
        g_warnings.clear();
        const char* f = filter.empty() ? nullptr : filter.c_str();
        if (!load_properties_from_file_without_se(path.c_str(), f, &loaded)) Fail("load failed");
        if (loaded != expected) Fail("loaded properties, filter '" + filter + "'");
        if (g_warnings != overrides) Fail("override messages, filter '" + filter + "'");
    }
    for (const std::string name : {"ro.a", "ro", "", "b", "ro.pre"}) {
        std::string expected;
        bool found = false;
        // These names hold no blank and no "=": a line begins with one when its name does.
        for (const Line& line : ModelLines(content)) {
            if (!found && line.name.compare(0, name.size(), name) == 0) {
                expected = line.value;
                found = true;
            }
        }
        if (load_property_from_file(path.c_str(), name.c_str()) != expected) {
            Fail("lookup of '" + name + "'");
        }
    }
}

}  // namespace

static std::string PathOf(size_t i) {
    return g_dir + "/f" + std::to_string(i) + ".prop";
}

// |text| with every line that the parser would take for an import defused.
static std::string Defused(const std::string& text) {
    std::vector<std::string> lines = android::base::Split(text, "\n");
    for (std::string& line : lines) {
        if (android::base::StartsWith(android::base::Trim(line), "import ")) line.insert(0, "I");
    }
    return android::base::Join(lines, '\n');
}

// File |i| of |count|, from its |text| as the header above says.
static std::string BuildFile(const std::string& text, size_t i, size_t count) {
    std::vector<std::string> lines = android::base::Split(Defused(text), "\n");
    int imports = 0;
    for (std::string& line : lines) {
        if (line.size() < 2 || line[0] != '@' || imports++ >= 3) continue;
        std::string name = line[1] == 'u' ? "${fz.unset}/f" : line[1] == 'm' ? "${fz.dir}/m" : "";
        if (line[1] >= '0' && line[1] <= '9' && i + 1 < count) {
            name = "${fz.dir}/f" + std::to_string(i + 1 + (line[1] - '0') % (count - i - 1));
        }
        if (!name.empty()) line = "import " + name + ".prop" + line.substr(2);
    }
    return android::base::Join(lines, '\n');
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    android::base::SetLogger([](android::base::LogId, android::base::LogSeverity severity,
                                const char*, const char*, unsigned, const char* message) {
        if (severity == android::base::WARNING) g_warnings.push_back(message);
    });
    g_dir = std::filesystem::temp_directory_path() / "zelva-fuzz-XXXXXX";
    if (mkdtemp(g_dir.data()) == nullptr) abort();
    android::base::SetProperty("fz.dir", g_dir);
    atexit([] { std::filesystem::remove_all(g_dir); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> files;
    for (size_t start = 0, end = 0; files.size() < 4 && end != std::string::npos; start = end + 4) {
        end = input.find("\n;;\n", start);
        files.push_back(input.substr(start, end - start));  // the rest when end is npos
    }
    // File 0 without its imports, against the model.
    const std::string plain = Defused(files[0]);
    if (!WriteFile(PathOf(0), plain).ok()) abort();
    CheckAgainstModel(PathOf(0), plain);

    for (size_t i = 0; i < files.size(); ++i) {
        files[i] = BuildFile(files[i], i, files.size());
        if (!WriteFile(PathOf(i), files[i]).ok()) abort();
    }
    // Loading is repeatable, and every name loaded is in some file.
    PropertyMap all, redo, filtered;  // redo: a second load, the same
    const std::string top = PathOf(0), text = android::base::Join(files, '\0');
    if (!load_properties_from_file_without_se(top.c_str(), nullptr, &all)) Fail("tree load failed");
    if (!load_properties_from_file_without_se(top.c_str(), nullptr, &redo) || redo != all) {
        Fail("a second load of the tree differs");
    }
    if (!load_properties_from_file_without_se(top.c_str(), "ro.*", &filtered)) Fail("filtered load failed");
    for (const auto& [name, value] : all) {
        if (text.find(name) == std::string::npos) Fail("loaded a name no file holds: " + name);
    }
    // A filter keeps only matching names and follows no import: each is in file 0.
    for (const auto& [name, value] : filtered) {
        if (name.compare(0, 3, "ro.") != 0 || all.count(name) == 0 ||
            files[0].find(name) == std::string::npos) {
            Fail("filtered load gave " + name);
        }
    }
    return 0;
}
