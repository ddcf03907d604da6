// SPDX-License-Identifier: Apache-2.0
// The switch-key lookups and stores against a small model of their rules, on map files that
// the input spreads over the customization directories (in a device root entered in-process).
//
// The map files are written from (name, value) pairs drawn from a small vocabulary, so the
// model knows each file's map without parsing it: a later pair for a name replaces an earlier
// one. Checked:
// - find_nv_ssv_target_key: the value of the last directory (in list order) whose map file holds
//   the key; "" when none does;
// - find_nv_source_key: in that same order, the first name (byte order) whose value is the
//   target, in the first directory that has one;
// - load_convert_first_key: the first of carrier, NV flag, SSV key, channel and company type that
//   maps to a non-empty key;
// - createDirectory: makes exactly the missing prefixes that end in a separator (within the
//   first 255 bytes) and returns 0;
// - isConvertFromCustomMap / saveRegionSwitchKeyOnReserve: the file is kept only when its region
//   key traces back through custom_map.prop; the reserve file is one "name=value" line, and an
//   empty value writes nothing;
// - doRegionSwitchForDomestic: only a "CN" device without a reserve region file or a traced data
//   one gets a reserve region file, from the province or the mapped company type.

#include <sys/stat.h>

#include <optional>
#include <set>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "fuzz_device.h"

namespace {

using android::init::CustDirList;
using fuzz_input::Pick;

// Names and values of the map files: short, no whitespace, "=" or "#", some of them equal.
constexpr const char* kWords[] = {"a", "b", "ab", "K1", "K2", "cn", "CN", "x-y", "", "K1K2K3K4K5"};
using fuzz_device::kMapFiles;

// A region key file's line for |key|.
std::string RegionLine(const std::string& key) {
    return "sys.region.switch.first=" + key + "\n";
}

// Map files as the model knows them: (directory index, file name) -> map; nullopt marks a
// directory standing where the file should be (present, but it can't be read).
std::map<std::pair<size_t, std::string>, std::optional<PropertyMap>> g_maps;

void WriteMaps(FuzzedDataProvider& in) {
    g_maps.clear();
    const size_t files = in.ConsumeIntegralInRange(0, 6);
    for (size_t i = 0; i < files; ++i) {
        const size_t dir = in.ConsumeIntegralInRange<size_t>(0, CustDirList().size() - 1);
        const std::string name = Pick(in, kMapFiles);
        const std::string path = CustDirList()[dir] + "/etc/" + name;
        if (g_maps.count({dir, name}) != 0 || !fuzz_device::InTree(path)) continue;
        if (in.ConsumeIntegralInRange(0, 7) == 0) {
            std::filesystem::create_directories(path);
            g_maps[{dir, name}] = std::nullopt;
            continue;
        }
        PropertyMap map;
        std::string text;
        for (size_t lines = in.ConsumeIntegralInRange(0, 5); lines > 0; --lines) {
            std::string key = Pick(in, kWords), value = Pick(in, kWords);
            if (key.empty()) key = "k";
            map[key] = value;
            text += key + "=" + value + "\n";
        }
        fuzz_device::PutFile(path, text);
        g_maps[{dir, name}] = map;
    }
}

// The maps of |file|, last directory of the list first.
std::vector<PropertyMap> MapsFromLast(const std::string& file) {
    std::vector<PropertyMap> maps;
    for (size_t dir = CustDirList().size(); dir-- > 0;) {
        auto it = g_maps.find({dir, file});
        if (it != g_maps.end() && it->second) maps.push_back(*it->second);
    }
    return maps;
}

std::string ModelTarget(const std::string& key, const std::string& file) {
    if (key.empty()) return "";
    for (const PropertyMap& map : MapsFromLast(file)) {
        if (auto it = map.find(key); it != map.end()) return it->second;
    }
    return "";
}

std::string ModelSource(const std::string& target, const std::string& file) {
    for (const PropertyMap& map : MapsFromLast(file)) {
        for (const auto& [name, value] : map) {
            if (value == target) return name;
        }
    }
    return "";
}

void CheckLookups(FuzzedDataProvider& in) {
    const std::string file = Pick(in, kMapFiles);
    const std::string key = Pick(in, kWords);
    std::string target = "stale";
    android::init::find_nv_ssv_target_key(key, file, &target);
    if (target != ModelTarget(key, file)) fuzz_device::Fail("forward lookup of " + key);

    std::string source = "stale";
    android::init::find_nv_source_key(&source, file, key);
    const std::string expected = key.empty() ? "stale" : ModelSource(key, file);
    if (source != expected) fuzz_device::Fail("reverse lookup of " + key);
}

void CheckFirstKey(FuzzedDataProvider& in) {
    const std::string carrier = Pick(in, kWords), nv_flag = Pick(in, kWords), ssv = Pick(in, kWords), channel = Pick(in, kWords),
                      company = Pick(in, kWords);
    hostplatform::SetProperty("ro.boot.qvcarrier", carrier);
    hostplatform::SetProperty("persist.sys.channel.info", channel);
    hostplatform::SetProperty("ro.zelva.image.my_company.type", company);
    std::string expected;
    for (const std::string& source : {carrier, nv_flag, ssv, channel, company}) {
        if (expected.empty()) expected = ModelTarget(source, "nvmap.prop");
    }
    std::string first;
    android::init::load_convert_first_key(&first, nv_flag, ssv);
    if (first != expected) fuzz_device::Fail("first key from old identities");
    // A key that is already there is kept.
    std::string kept = "kept";
    android::init::load_convert_first_key(&kept, nv_flag, ssv);
    if (kept != "kept") fuzz_device::Fail("first key replaced");
}

// The directories below /data/t, in normal form.
std::set<std::string> DirsBelowData() {
    std::set<std::string> dirs = {"/data/t"};
    std::error_code ec;
    for (const auto& entry : std::filesystem::recursive_directory_iterator("/data/t", ec)) {
        if (entry.is_directory()) dirs.insert(entry.path().string());
    }
    return dirs;
}

void CheckCreateDirectory(FuzzedDataProvider& in) {
    constexpr const char* kParts[] = {"a", "b", "/", "\\", ".", "..", "c.d"};
    std::string path = "/data/t/";
    for (size_t parts = in.ConsumeIntegralInRange(0, 12); parts > 0; --parts) {
        const size_t part = in.ConsumeIntegralInRange<size_t>(0, std::size(kParts));
        path += part == std::size(kParts) ? std::string(120, 'L') : kParts[part];
    }
    std::error_code ec;
    std::filesystem::create_directories("/data/t", ec);
    std::set<std::string> expected = DirsBelowData();
    // Every prefix that ends in a separator, within the bounded copy, exists afterwards.
    const std::string copied = path.substr(0, 255);
    for (size_t i = 0; i < copied.size(); ++i) {
        if (copied[i] != '/' && copied[i] != '\\') continue;
        const std::string prefix = copied.substr(0, i + 1);
        const std::string normal = fuzz_device::NormalPath(prefix);
        if (android::base::StartsWith(normal, "/data/t")) expected.insert(normal);
    }
    if (android::init::createDirectory(path) != 0) fuzz_device::Fail("createDirectory " + path);
    if (DirsBelowData() != expected) fuzz_device::Fail("directories made for " + path);
}

void CheckRegionFiles(FuzzedDataProvider& in) {
    const std::string data_file = android::init::kDataRegionSwitchFile;
    if (android::init::isConvertFromCustomMap("") ||
        android::init::isConvertFromCustomMap(data_file + ".missing")) {
        fuzz_device::Fail("an empty path or a missing region file traced");
    }
    const std::string key = Pick(in, kWords);
    const bool other_line = in.ConsumeBool();
    // A directory in the file's place can't be read: it is not traced, and it stays.
    const bool unreadable = in.ConsumeIntegralInRange(0, 7) == 0;
    std::error_code ec;
    std::filesystem::remove_all(data_file, ec);
    if (unreadable) std::filesystem::create_directories(data_file, ec);
    if (!unreadable) fuzz_device::PutFile(data_file, (other_line ? "x=1\n" : "") + RegionLine(key));
    const bool traced = !unreadable && !key.empty() && !ModelSource(key, "custom_map.prop").empty();
    if (android::init::isConvertFromCustomMap(data_file) != traced) {
        fuzz_device::Fail("region key " + key + " traced");
    }
    if ((access(data_file.c_str(), F_OK) == 0) != (traced || unreadable)) {
        fuzz_device::Fail("data region file");
    }

    const std::string value = Pick(in, kWords);
    unlink(android::init::kReserveRegionSwitchFile);
    if (android::init::saveRegionSwitchKeyOnReserve(value) == value.empty()) {
        fuzz_device::Fail("saving region key " + value);
    }
    std::string content;
    const bool written =
            android::base::ReadFileToString(android::init::kReserveRegionSwitchFile, &content);
    if (value.empty() ? written : content != RegionLine(value)) {
        fuzz_device::Fail("reserve region file for " + value);
    }
}

// The domestic conversion: only on a "CN" device without a usable region file, the province
// (as it stands) or else the company type mapped through custom_map.prop becomes the reserve
// region file's key; without the reserve directory nothing is written (the next boot retries).
void CheckDomestic(FuzzedDataProvider& in) {
    const std::string reserve = android::init::kReserveRegionSwitchFile;
    const std::string data_file = android::init::kDataRegionSwitchFile;
    const bool domestic = in.ConsumeBool();
    fuzz_device::PutFile(android::init::kRegionBuildProp,
                         std::string(android::init::kSkuRegionProperty) + "=" +
                                 (domestic ? "CN" : "EU") + "\n");
    std::error_code ec;
    std::filesystem::remove_all(reserve, ec);
    std::filesystem::remove_all(data_file, ec);
    if (in.ConsumeIntegralInRange(0, 5) == 0) std::filesystem::remove_all(android::init::kReserveSsvDir, ec);
    const bool had_reserve = in.ConsumeIntegralInRange(0, 3) == 0;
    if (had_reserve) fuzz_device::PutFile(reserve, RegionLine("old"));
    const std::string data_key = Pick(in, kWords);
    const bool had_data = in.ConsumeBool();
    if (had_data) fuzz_device::PutFile(data_file, RegionLine(data_key));
    const std::string province = Pick(in, kWords), company = Pick(in, kWords);
    hostplatform::SetProperty("ro.sys.region.switch.first", province);
    hostplatform::SetProperty("ro.zelva.image.my_company.type", company);

    std::string expected = had_reserve ? RegionLine("old") : "";
    const bool traced = had_data && !data_key.empty() && !ModelSource(data_key, "custom_map.prop").empty();
    const bool reserve_dir = access(android::init::kReserveSsvDir, F_OK) == 0;
    if (domestic && !had_reserve && !traced && reserve_dir) {
        const std::string key = !province.empty() ? province : ModelTarget(company, "custom_map.prop");
        if (!key.empty()) expected = RegionLine(key);
    }
    android::init::doRegionSwitchForDomestic();
    std::string content;
    android::base::ReadFileToString(reserve, &content);
    if (content != expected) fuzz_device::Fail("domestic region file");
    std::filesystem::create_directories(android::init::kReserveSsvDir);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    fuzz_device::Start(*argc, *argv, "CN");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_device::FreshInput(/*key_stores=*/true);
    FuzzedDataProvider in(data, size);
    WriteMaps(in);
    fuzz_input::RunChecks(in, {CheckLookups, CheckFirstKey, CheckCreateDirectory, CheckRegionFiles,
                               CheckDomestic});
    return 0;
}
