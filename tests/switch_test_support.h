// SPDX-License-Identifier: Apache-2.0
// Helpers of the tests of the override entries, the switch keys and COTA: the device stores'
// paths, the files the library leaves there, the mount calls it makes.
#pragma once

#include <sys/mount.h>
#include <unistd.h>

#include <ostream>

#include "ZelvaExtensionProperty.h"
#include "expectations.h"
#include "test_support.h"

namespace zelva_test {

inline const std::string kReserveDir = "/mnt/vendor/zelvareserve/system/ssv/";
inline const std::string kDataDir = "/data/system/customize/sim_switch/";
inline const std::string kReserveFirst = kReserveDir + "sim_switch_first_file";
inline const std::string kReserveCurrent = kReserveDir + "sim_switch_current_file";
inline const std::string kReserveRegion = kReserveDir + "region_switch_file";
inline const std::string kReserveConvert = kReserveDir + "sim_switch_convert_file";
inline const std::string kReserveNoneClear = kReserveDir + "first_switch_none_clear";
inline const std::string kReserveSsv = kReserveDir + "sim_action_file";
inline const std::string kDataFirst = kDataDir + "sim_switch_first_file";
inline const std::string kDataRegion = kDataDir + "region_switch_file";

// A key file hands itself to system (1000:1000). Only a test running as root can give files
// away; in the sandbox's user namespace the chown fails and the file stays with its root.
inline const uid_t kKeyFileOwner = geteuid() == 0 ? 1000 : 0;

// A key file the library wrote and gave to system.
inline FileState KeyFile(std::string content) {
    return {std::move(content), kKeyFileOwner, kKeyFileOwner, 0600};
}
// A file the library wrote and left with root.
inline FileState RootFile(std::string content) {
    return {std::move(content), 0, 0, 0600};
}

// One mount() call, as the library asked for it.
struct MountCall {
    std::string source, target;
    unsigned long flags;
    bool operator==(const MountCall&) const = default;
};

inline void PrintTo(const MountCall& call, std::ostream* os) {
    *os << "mount " << call.source << " on " << call.target << " flags 0x" << std::hex << call.flags
        << std::dec;
}

// The flags of every COTA bind: read-only, no devices, synchronous directories, no atimes.
constexpr unsigned long kCotaBind = MS_BIND | MS_RDONLY | MS_NODEV | MS_DIRSYNC | MS_NOATIME;

inline MountCall CotaBind(std::string source, std::string target) {
    return {std::move(source), std::move(target), kCotaBind};
}

// The step in which a test calls the code under test, after the object was built.
inline const std::string kCall = "call";

// Runs |fn| as step kCall in a device laid out from |tree| and holding |props|, once the
// object has built its directory lists. cota_test.cpp wraps mount() to record each call before
// making it, so that the flags asked for show even where the kernel ignores some (MS_RDONLY in
// a first bind); MountCalls() gives back those made during |fn|.
sandbox::Outcome RunDevice(const sandbox::DeviceTree& tree, PropertyMap props,
                           const sandbox::Function& fn);
std::vector<MountCall> MountCalls(const sandbox::Outcome& outcome);
// Inside the device: the mount calls since the last take.
std::vector<MountCall> TakeMountCalls();

// With kSpecialSeed set, loadSpecialProperties sends kSpecialBatch.
inline const PropertyMap kSpecialSeed = {{"ro.vendor.zelva.version_suffix", "T"},
                                         {"ro.build.display.id", "QX100_11"}};
inline const SentBatch kSpecialBatch = Ordinary({{"ro.vendor.zelva.exp.version", "QX100T_11"}});

// The value of |name| in the device's property store at the end; nullopt when never set.
inline std::optional<std::string> PropertyAt(const sandbox::Outcome& o, const std::string& name) {
    const auto it = o.properties.find(name);
    if (it == o.properties.end()) return std::nullopt;
    return it->second;
}

// |base| with |more| added.
inline PropertyMap With(PropertyMap base, const PropertyMap& more) {
    for (const auto& [name, value] : more) base[name] = value;
    return base;
}

constexpr char kMountInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";

inline auto* Impl() {
    return android::init::InitExtensionPropertyImpl::getInstance();
}

}  // namespace zelva_test
