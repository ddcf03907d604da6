// SPDX-License-Identifier: Apache-2.0
// The property-file parser over a small tree of files that import each other.
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
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>

#include "utils.h"

static std::string g_dir;

static std::string PathOf(size_t i) {
    return g_dir + "/f" + std::to_string(i) + ".prop";
}

// File |i| of |count|, from its |text| as the header above says.
static std::string BuildFile(const std::string& text, size_t i, size_t count) {
    std::vector<std::string> lines = android::base::Split(text, "\n");
    int imports = 0;
    for (std::string& line : lines) {
        if (android::base::StartsWith(android::base::Trim(line), "import ")) line.insert(0, "I");
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
    android::base::SetMinimumLogSeverity(android::base::FATAL);
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
    for (size_t i = 0; i < files.size(); ++i) {
        files[i] = BuildFile(files[i], i, files.size());
        if (!WriteFile(PathOf(i), files[i]).ok()) abort();
    }
    // Loading is repeatable, and every name loaded is in some file.
    PropertyMap all, redo, filtered;  // redo: a second load, the same
    const std::string top = PathOf(0), text = android::base::Join(files, '\0');
    if (!load_properties_from_file_without_se(top.c_str(), nullptr, &all)) abort();
    if (!load_properties_from_file_without_se(top.c_str(), nullptr, &redo) || redo != all) abort();
    if (!load_properties_from_file_without_se(top.c_str(), "ro.*", &filtered)) abort();
    for (const auto& [name, value] : all) {
        if (text.find(name) == std::string::npos) abort();
    }
    // A filter keeps only matching names and follows no import: each is in file 0.
    for (const auto& [name, value] : filtered) {
        if (name.compare(0, 3, "ro.") != 0 || all.count(name) == 0) abort();
        if (files[0].find(name) == std::string::npos) abort();
    }
    return 0;
}
