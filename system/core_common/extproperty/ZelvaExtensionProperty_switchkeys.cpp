// SPDX-License-Identifier: Apache-2.0
// Switch-key lookups: map files that translate keys between schemes, the old
// NV and SSV identities, and the first switch key derived from them.

#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/logging.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr size_t kNvFlagLength = 8;
constexpr size_t kCreateDirectoryBufferSize = 256;

// Parses <dir>/etc/<mapFileName> for each customization directory, last
// directory first, until |visit| returns true for one of the maps.
template <typename Visit>
void ForEachMapFileFromLast(const std::string& mapFileName, Visit visit) {
    const std::vector<std::string>& dirs = CustDirList();
    PropertyMap map;
    for (auto dir = dirs.rbegin(); dir != dirs.rend(); ++dir) {
        const std::string path = *dir + "/etc/" + mapFileName;
        if (access(path.c_str(), F_OK) != 0) continue;
        map.clear();
        if (!load_properties_from_file_without_se(path.c_str(), nullptr, &map)) {
            LOG(ERROR) << "map file load failed:" << path;
            continue;
        }
        if (visit(map)) return;
    }
}

}  // namespace

void find_nv_ssv_target_key(std::string key, std::string mapFileName, std::string* target) {
    target->clear();
    if (key.empty()) return;
    ForEachMapFileFromLast(mapFileName, [&](const PropertyMap& map) {
        auto it = map.find(key);
        if (it == map.end()) return false;
        *target = it->second;
        return true;
    });
}

void find_nv_source_key(std::string* source, std::string mapFileName, std::string target) {
    if (source == nullptr || target.empty()) return;
    source->clear();
    ForEachMapFileFromLast(mapFileName, [&](const PropertyMap& map) {
        for (const auto& [name, value] : map) {
            if (value == target) {
                *source = name;
                break;
            }
        }
        return !source->empty();
    });
}

void load_old_nv_key(std::string* nvFlag, std::string* nvKey) {
    std::string content;
    for (const char* path : kOldNvFlagSources) {
        if (!ReadFileToStringNoFollow(path, &content)) {
            LOG(ERROR) << "read nv_flag failed :" << path;
            content.clear();  // a read that broke off gives no flag
            continue;
        }
        if (content.empty()) {
            LOG(WARNING) << "Couldn't file" << path;
            continue;
        }
        break;
    }
    if (content.empty()) return;
    const std::string flag = content.substr(0, kNvFlagLength);
    nvFlag->append(flag);
    find_nv_ssv_target_key(flag, "flags.prop", nvKey);
}

void read_old_ssv_key(std::string* ssvKey) {
    if (access(kReserveSimActionFile, F_OK) != 0) return;
    std::string content;
    if (!ReadFileToStringNoFollow(kReserveSimActionFile, &content)) {
        LOG(ERROR) << "read old ssv failed :" << kReserveSimActionFile;
        return;  // the key stays as it was
    }
    *ssvKey = std::move(content);
}

void load_convert_first_key(std::string* firstKey, std::string nvFlag, std::string ssvKey) {
    const std::string sources[] = {
            GetSystemProperty("ro.boot.qvcarrier"),
            nvFlag,
            ssvKey,
            GetSystemProperty("persist.sys.channel.info"),
            GetSystemProperty("ro.zelva.image.my_company.type"),
    };
    for (const std::string& source : sources) {
        if (!firstKey->empty()) return;
        if (source.empty()) continue;
        find_nv_ssv_target_key(source, "nvmap.prop", firstKey);
    }
}

int createDirectory(std::string path) {
    // Only prefixes that end in a separator are made, so "/x/y/" makes /x/y
    // but "/x/y" makes only /x. The copy is bounded by the buffer.
    char prefix[kCreateDirectoryBufferSize] = {};
    const size_t length = std::min(path.size(), sizeof(prefix) - 1);
    for (size_t i = 0; i < length; ++i) {
        prefix[i] = path[i];
        if (path[i] != '/' && path[i] != '\\') continue;
        if (access(prefix, F_OK) == 0) continue;
        LOG(INFO) << "make dir: " << prefix;
        if (mkdir(prefix, 0771) != 0) return -1;
    }
    return 0;
}

}  // namespace init
}  // namespace android
