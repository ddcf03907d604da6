// SPDX-License-Identifier: Apache-2.0
// The whole persist override pipeline (slot 6), booted twice on a device tree built from the
// input, in a device root entered in-process (coverage stays in one process).
//
// Input lines: "f<N> <content>" writes file N of kFiles, "g<N> <content>" writes a map file
// (directory N of the customization directory list, and nvmap.prop, flags.prop or
// custom_map.prop by N / list size), "p<N> <value>" sets property N of kProperties; "\n" in a
// content is a line feed.
//
// The host applies each batch as init would. What must hold:
// - every batch is non-empty; kind 1 holds no "ro." name; kind 2 holds only "persist." names,
//   and a company record in it is its only entry;
// - after a boot, each key file that the boot wrote is one "<property>=<value>" line, the
//   convert marker is written only together with the first file, and no file is left empty;
// - a second boot on the tree the first one left, from the same properties plus what the first
//   boot's restore batches set (init keeps those across the reboot), writes no file and, unless a "sys." property was given, resolves the same keys.
// A key taken as read (a legacy bare key file's content, the province or the region removal
// property's value) keeps its line breaks and blanks on the boot that writes its line, so that line may span
// more than one line, and later boots read the key back as the line's first line, trimmed.

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "fuzz_device.h"

namespace {

using android::base::StartsWith;
using android::init::CustDirList;
using fuzz_device::kMapFiles;
using android::init::InitExtensionPropertyImpl;
namespace paths = android::init;

constexpr const char* kFiles[] = {
        paths::kRegionBuildProp,
        "/my_carrier/build.prop",
        "/my_company/build.prop",
        "/my_carrier/etc/build.k.prop",
        "/my_carrier/properties/k/SimSwitchFirstTime/a.prop",
        "/my_carrier/properties/k/SimSwitchCurrentTime/a.prop",
        "/my_carrier/properties/k/switchCarrierChannel/a.prop",
        "/my_region/properties/k/regionSwitch/a.prop",
        paths::kReserveSimSwitchFirstFile,
        paths::kReserveSimSwitchCurrentFile,
        paths::kReserveRegionSwitchFile,
        paths::kReserveSimSwitchConvertFile,
        paths::kReserveSimActionFile,
        paths::kReserveSimSwitchCommonFile,
        paths::kReserveForceConnectFile,
        paths::kFlashbackFile,
        paths::kOldNvFlagSources[0],
        paths::kCloudOverrideFile,
        paths::kDataEmptyAppChannelFile,
        paths::kDataCommonFile,
        paths::kDataSimSwitchFirstFile,
        paths::kDataSimSwitchCurrentFile,
        paths::kDataRegionSwitchFile,
        paths::kDataSimActionFile,
        "/my_product/cust/CN/etc/devicename.cfg",
        "/sys/block/sda/size",
};
constexpr const char* kProperties[] = {
        "sys.region.switch.first",
        "sys.sim.switch.first",
        "sys.sim.switch.current",
        "persist.sys.channel.info",
        "persist.sys.911.shutdown",
        "persist.sys.remove.region.apk",
        "persist.sys.recopy.preload.opinstalled",
        "persist.sys.zelva.operator.opta",
        "persist.sys.zelva.operator.optb",
        "ro.zelva.image.my_company.date",
        "persist.sys.zelva.company.ota.version.backup",
        "persist.sys.payjoy.status_change",
        "ro.boot.qvcarrier",
        "ro.zelva.internet.whether.force.connect",
        "dev.mnt.blk.userdata",
        "ro.vendor.zelva.version_suffix",
        "ro.build.display.id",
        "ro.sys.region.switch.first",
        "ro.zelva.image.my_company.type",
        "ro.zelva.image.my_carrier.version_name",
        "ro.none.clear.switch.first",
        "sys.zelva.switch.operator",
};

// The one-line files of the key stores, the property each one carries and the index of its key
// in Boot::keys.
struct KeyFile {
    std::string property;
    size_t key;
};
const std::map<std::string, KeyFile> kKeyFiles = {
        {paths::kReserveSimSwitchFirstFile, {"sys.sim.switch.first", 1}},
        {paths::kReserveSimSwitchCurrentFile, {"sys.sim.switch.current", 2}},
        {paths::kReserveRegionSwitchFile, {"sys.region.switch.first", 0}},
        {paths::kDataRegionSwitchFile, {"sys.region.switch.first", 0}},
};

// The key that the line "<property>=<raw>\n" reads back as, as a property file line reads:
// its first line, trailing blanks cut from the bytes as they stand, then cut at a NUL, leading
// blanks removed.
std::string ReadBack(const std::string& raw) {
    std::string line = raw.substr(0, raw.find('\n'));
    while (!line.empty() && isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    line.resize(std::min(line.size(), line.find('\0')));
    const size_t start = line.find_first_not_of(" \t\n\v\f\r");
    return start == std::string::npos ? "" : line.substr(start);
}

// Per key file, the key that a boot would take as read and write into it: a reserve file's own
// content (a legacy bare key), the province value for a reserve region file that the domestic
// conversion would make (it stores the province as it stands), the region removal property's
// value for the data region file. Only those that read back as something else.
std::map<std::string, std::string> KeysTakenAsRead() {
    std::map<std::string, std::string> raw;
    for (const auto& [path, file] : kKeyFiles) {
        std::string content;
        if (path == paths::kDataRegionSwitchFile) {
            content = fuzz_device::Property("persist.sys.remove.region.apk");
        } else if (path == paths::kReserveRegionSwitchFile && access(path.c_str(), F_OK) != 0) {
            content = fuzz_device::Property("ro.sys.region.switch.first");
        } else if (!android::base::ReadFileToString(path, &content)) {
            continue;
        }
        if (ReadBack(content) != content) raw.emplace(path, content);
    }
    return raw;
}

void CheckBatch(int kind, const PropertyMap& batch) {
    if (batch.empty()) fuzz_device::Fail("empty batch of kind " + std::to_string(kind));
    if (kind == 1) {
        for (const auto& entry : batch) {
            if (StartsWith(entry.first, "ro.")) fuzz_device::Fail("kind 1 with " + entry.first);
        }
    } else if (kind == 2) {
        for (const auto& entry : batch) {
            if (!StartsWith(entry.first, "persist.")) fuzz_device::Fail("kind 2 with " + entry.first);
        }
        if (batch.size() != 1 && batch.count("persist.sys.zelva.company.ota.version.backup") != 0) {
            fuzz_device::Fail("company record of more than one entry");
        }
    } else if (kind != 0) {
        fuzz_device::Fail("batch of kind " + std::to_string(kind));
    }
}

struct Boot {
    std::vector<std::string> keys;
    std::map<std::string, fuzz_device::Entry> tree;
    PropertyMap restored;  // the entries of its restore batches (kind 2)
};

Boot RunBoot() {
    InitExtensionPropertyImpl impl;
    PropertyMap restored;
    const int result = impl.loadPersistOverrideProperties([&restored](int kind, PropertyMap batch) {
        CheckBatch(kind, batch);
        for (const auto& [name, value] : batch) {
            if (kind == 2) restored[name] = value;  // a later batch's value wins, as for the host
        }
        fuzz_device::ApplyBatch(batch);
    });
    if (result != 0) fuzz_device::Fail("slot 6 returned " + std::to_string(result));
    // The old SSV key is left out: the reserve store is read for it only by the one-time
    // conversion, so later boots take it from the operator properties instead, by design.
    return {{impl.regionSwitchKey, impl.simSwitchFirstKey, impl.simSwitchCurrentKey,
             impl.switchCarrierChannelKey, impl.nvOldFlag, impl.nvOldKey},
            fuzz_device::WalkRoot(), restored};
}

// What the files that a boot wrote must look like. Returns the key files written with a key
// taken as read (of |as_read|) that reads back as something else.
std::map<std::string, std::string> CheckWritten(const Boot& boot,
                                                const std::map<std::string, std::string>& as_read) {
    std::map<std::string, std::string> written_as_read;
    for (const auto& [path, entry] : boot.tree) {
        if (entry.directory || entry.aged) continue;
        if (entry.content.empty()) fuzz_device::Fail("empty file left: " + path);
        if (auto key = kKeyFiles.find(path); key != kKeyFiles.end()) {
            const std::string& text = entry.content;
            const std::string prefix = key->second.property + "=";
            auto raw = as_read.find(path);
            if (raw != as_read.end() && text == prefix + raw->second + "\n") {
                written_as_read.insert(*raw);
            } else if (!StartsWith(text, prefix) || text.back() != '\n' ||
                       text.find('\n') != text.size() - 1) {
                fuzz_device::Fail("key file not one line: " + path);
            }
        }
        if (path == paths::kReserveSimSwitchConvertFile) {
            auto first = boot.tree.find(paths::kReserveSimSwitchFirstFile);
            if (first == boot.tree.end() || first->second.aged) {
                fuzz_device::Fail("convert marker written without the first file");
            }
        }
    }
    return written_as_read;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    fuzz_device::Start(*argc, *argv, "CN");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_device::FreshInput(/*key_stores=*/true);
    const size_t dirs = CustDirList().size();
    for (const fuzz_device::Field& f : fuzz_device::Fields(data, size)) {
        if (f.kind == 'f' && f.index < std::size(kFiles)) fuzz_device::PutFile(kFiles[f.index], f.text);
        if (f.kind == 'g') {
            const std::string path = CustDirList()[f.index % dirs] + "/etc/" +
                                     kMapFiles[f.index / dirs % std::size(kMapFiles)];
            if (fuzz_device::InTree(path)) fuzz_device::PutFile(path, f.text);
        }
        if (f.kind == 'p' && f.index < std::size(kProperties)) {
            hostplatform::SetProperty(kProperties[f.index], f.text);
        }
    }
    const PropertyMap build = hostplatform::SnapshotProperties();
    const std::map<std::string, std::string> as_read = KeysTakenAsRead();
    bool foreign_key_line = false;
    for (const auto& [path, file] : kKeyFiles) {
        std::string content;
        if (android::base::ReadFileToString(path, &content) &&
            content.find('=') != std::string::npos &&
            content.find(file.property + "=") == std::string::npos) {
            foreign_key_line = true;
        }
    }

    fuzz_device::Age();
    const Boot first = RunBoot();
    const std::map<std::string, std::string> written_as_read = CheckWritten(first, as_read);

    // The second boot starts from the same properties, and what differs is the tree, with one
    // exception: the "persist." entries of the first boot's restore batches, which init keeps
    // across the reboot. They are what makes the channel reset after an emergency shutdown
    // happen once per marker (it sets persist.sys.recopy.preload.opinstalled); without them the
    // second boot would reset again, delete both region files and write them anew.
    hostplatform::ResetProperties();
    for (const auto& [name, value] : build) hostplatform::SetProperty(name, value);
    for (const auto& [name, value] : first.restored) hostplatform::SetProperty(name, value);
    fuzz_device::Age();
    const Boot second = RunBoot();
    for (const auto& [path, entry] : second.tree) {
        if (entry.directory || entry.aged) continue;
        // One rewrite is by design: on a domestic device the region conversion removes a data
        // region file whose key custom_map.prop doesn't trace, and the region removal property
        // then writes the same line again, on every boot.
        auto before = first.tree.find(path);
        if (path == paths::kDataRegionSwitchFile && android::init::GetSkuRegion() == "CN" &&
            before != first.tree.end() && before->second.content == entry.content) {
            continue;
        }
        fuzz_device::Fail("second boot wrote " + path);
    }
    // A "sys." switch property given to both boots decides the first boot's key where the key
    // files it wrote decide the second's (a written key joins the batch only when absent); and a
    // key file holding another key's line is taken whole for its own key and rewritten, so the
    // other key is gone the next boot. Both by design: the keys are compared without them.
    for (const auto& entry : build) {
        if (StartsWith(entry.first, "sys.")) return 0;
    }
    if (foreign_key_line) return 0;
    // A key the first boot took as read and wrote is read back from its line by the second,
    // unless what decided it the first time (a property still set) decides it again. The first
    // boot holds it as read, or as the host's property gives it back (up to a NUL).
    std::vector<std::string> expected = first.keys;
    for (const auto& [path, raw] : written_as_read) {
        std::string& key = expected[kKeyFiles.at(path).key];
        if (key == raw || key == raw.substr(0, raw.find('\0'))) key = ReadBack(raw);
    }
    for (size_t i = 0; i < first.keys.size(); ++i) {
        if (second.keys[i] != expected[i] && second.keys[i] != first.keys[i]) {
            fuzz_device::Fail("second boot resolved key " + std::to_string(i) + " as '" +
                              second.keys[i] + "', the first as '" + first.keys[i] +
                              "', expected '" + expected[i] + "'");
        }
    }
    return 0;
}
