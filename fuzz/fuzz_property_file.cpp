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

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <android-base/properties.h>

#include "utils.h"

namespace {

std::string g_dir;

std::string PathOf(size_t i) {
    return g_dir + "/f" + std::to_string(i) + ".prop";
}

std::string BuildFile(const std::string& text, size_t i, size_t count) {
    std::string out;
    int imports = 0;
    for (size_t start = 0; start <= text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        std::string line = text.substr(start, end - start);
        const size_t first = line.find_first_not_of(" \t\n\v\f\r");
        if (line.size() >= 2 && line[0] == '@' && imports++ < 3) {
            const std::string rest = line.substr(2);
            if (line[1] >= '0' && line[1] <= '9' && i + 1 < count) {
                const size_t j = i + 1 + (line[1] - '0') % (count - i - 1);
                line = "import ${fz.dir}/f" + std::to_string(j) + ".prop" + rest;
            } else if (line[1] == 'u') {
                line = "import ${fz.unset}/f.prop" + rest;
            } else if (line[1] == 'm') {
                line = "import ${fz.dir}/missing.prop" + rest;
            }
        } else if (first != std::string::npos && line.compare(first, 7, "import ") == 0) {
            line[first] = 'I';
        }
        out += line;
        if (end < text.size()) out += '\n';
        start = end + 1;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    android::base::SetLogger([](auto&&...) {});
    android::base::SetMinimumLogSeverity(android::base::FATAL);
    char dir[] = "/tmp/zelva-fuzz-XXXXXX";
    if (mkdtemp(dir) == nullptr) abort();
    g_dir = dir;
    android::base::SetProperty("fz.dir", g_dir);
    atexit([] { std::filesystem::remove_all(g_dir); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> texts;
    for (size_t start = 0; texts.size() < 4;) {
        const size_t end = input.find("\n;;\n", start);
        texts.push_back(input.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) break;
        start = end + 4;
    }
    std::string all_files;
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string content = BuildFile(texts[i], i, texts.size());
        if (!WriteFile(PathOf(i), content).ok()) abort();
        all_files += content + '\0';
    }

    PropertyMap first, second, filtered;
    if (!load_properties_from_file_without_se(PathOf(0).c_str(), nullptr, &first)) abort();
    if (!load_properties_from_file_without_se(PathOf(0).c_str(), nullptr, &second)) abort();
    if (first != second) abort();
    for (const auto& [name, value] : first) {
        if (all_files.find(name) == std::string::npos) abort();
    }
    // A filter keeps only matching names and follows no import.
    load_properties_from_file_without_se(PathOf(0).c_str(), "ro.*", &filtered);
    for (const auto& [name, value] : filtered) {
        if (name.compare(0, 3, "ro.") != 0 || first.count(name) == 0) abort();
    }
    return 0;
}
