// SPDX-License-Identifier: Apache-2.0
// The COTA service commands (slot 12) on a device tree built from the input, in a device root
// entered in-process. mount() is replaced to record each call and answer it without mounting.
//
// Input lines: "c<N> x" runs command N of kCommands (in input order), "f<N> <content>" writes
// file N of kFiles, "p<N> <value>" sets property N of kProperties, "d<N> <path>" creates a
// directory, "k<N> <key>" sets key member N of the object, "m0 x" makes every mount fail.
//
// What must hold after every command:
// - each request file the command reads is gone, whatever it held;
// - the request's own entries reach the host only under "sys.", "ro." (and "persisit." for
//   the image request), as exactly one batch;
// - every mount is a read-only COTA bind (flags 0x1485) of exactly the request's source and
//   bind point, made only when the request allows it (verify exactly "1" for an image), or the
//   media bind of a "/my_" directory;
// - directories are created only by "bind_basic_point", and only those that a module directory
//   accepted by its plain prefix test (the base directory or /data/system/customize) names: the
//   directory its path reads as, ".." components included, and the parents made on the way.
//   A module directory failing the test has nothing made for it.
// A one-character display version ends the process by design (composing the display version
// takes its last two characters). The host here never lets the properties reach that state
// (see ApplyBatchAsHost); any abort is a finding.

#include <errno.h>
#include <stdarg.h>

#include <filesystem>
#include <set>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "fuzz_device.h"

namespace {

using android::base::StartsWith;
using android::init::InitExtensionPropertyImpl;
using android::init::kCotaBindFlags;
using android::init::kCotaMountInfoFile;

constexpr const char* kModuleRequest = android::init::kCotaModuleInfoFile;
constexpr char kCustomizeDir[] = "/data/system/customize";

constexpr const char* kCommands[] = {"mount_and_check_load", "mount_must_load",
                                     "bind_basic_point",     "module_bind_single",
                                     "update_cota_info",     "MOUNT_MUST_LOAD"};
constexpr const char* kFiles[] = {
        kCotaMountInfoFile,
        kModuleRequest,
        "/mnt/cota/c/build.prop",
        "/mnt/cota/c/cust/build.prop",
        "/my_carrier/build.prop",
        "/my_carrier/cust/build.prop",
        "/mnt/cota/m/build.prop",
        "/mnt/mod/build.prop",
        "/mnt/cota/c/properties/k/SimSwitchFirstTime/a.prop",
        "/mnt/cota/c/etc/build.k.prop",
        "/my_carrier/properties/k/regionSwitch/a.prop",
};
constexpr const char* kProperties[] = {
        "sys.cota.module.base.mount.point",
        "ro.zelva.customize.display.version_name",
        "ro.zelva.image.my_carrier.version_name",
        "ro.build.cota.version_name",
        "persist.sys.customize.media",
        "sys.mount.mediapath.success",
        "ro.sys.custommedia.sourcepath",
        "ro.vendor.zelva.version_suffix",
        "ro.build.display.id",
};
constexpr const char* kDisplayProperties[] = {"ro.zelva.customize.display.version_name",
                                              "ro.zelva.image.my_carrier.version_name"};

struct MountCall {
    std::string source, target;
    unsigned long flags;
    std::string media;  // persist.sys.customize.media when the call was made
    bool operator==(const MountCall& o) const {
        return source == o.source && target == o.target && flags == o.flags;
    }
};
std::vector<MountCall> g_mounts;
bool g_record = false;
bool g_fail_mounts = false;

}  // namespace

// Replaces libc's mount() in this program: while an input runs, records the call and answers it
// (0, or -1 with EACCES) without mounting; otherwise (entering the device root) mounts.
extern "C" int mount(const char* source, const char* target, const char* type, unsigned long flags,
                     const void* data) {
    if (!g_record) return fuzz_device::KernelMount(source, target, type, flags, data);
    if (type != nullptr || data != nullptr) fuzz_device::Fail("a bind with a type or data");
    g_mounts.push_back({source, target, flags, fuzz_device::Property("persist.sys.customize.media")});
    if (!g_fail_mounts) return 0;
    errno = EACCES;
    return -1;
}

namespace {

// The display version that composing it would start from: the carrier version's part after
// its last '-' (the whole of it when that is at index 0 or absent), else the display version;
// empty when there is no display version.
std::string DisplayStart() {
    const std::string display = fuzz_device::Property(kDisplayProperties[0]);
    const std::string carrier = fuzz_device::Property(kDisplayProperties[1]);
    if (display.empty() || carrier.empty()) return display;
    const size_t dash = carrier.rfind('-');
    return dash != std::string::npos && dash >= 1 ? carrier.substr(dash + 1) : carrier;
}

// Applies a batch as init would, except for a value that would leave a one-character display
// version to compose from: a host that kept it would have the process end by design.
void ApplyBatchAsHost(const PropertyMap& batch) {
    for (const auto& entry : batch) {
        const auto before = hostplatform::GetProperty(entry.first);
        fuzz_device::ApplyBatch({entry});
        if (DisplayStart().size() == 1) hostplatform::SetProperty(entry.first, before.value_or(""));
    }
}

PropertyMap LoadRequest(const char* path) {
    PropertyMap request;
    if (access(path, F_OK) == 0) load_properties_from_file_without_se(path, nullptr, &request);
    return request;
}

std::string ValueOr(const PropertyMap& map, const std::string& name, const std::string& fallback) {
    auto it = map.find(name);
    return it != map.end() ? it->second : fallback;
}

PropertyMap Forwarded(const PropertyMap& request, bool persisit) {
    PropertyMap forward;
    for (const auto& [name, value] : request) {
        if (StartsWith(name, "sys.") || StartsWith(name, "ro.") ||
            (persisit && StartsWith(name, "persisit."))) {
            forward.emplace(name, value);
        }
    }
    return forward;
}

// What one command must do with the requests it reads.
struct Expected {
    std::vector<const char*> consumed;  // request files that must be gone afterwards
    std::vector<MountCall> binds;       // the COTA binds, in order
    std::vector<PropertyMap> forwards;  // batches that must be among those sent
    PropertyMap requests;               // every request entry, for the leak check
    std::set<std::string> dirs;         // directories the command may create, in normal form
};

// The module directories of a total module info request that pass the plain prefix test: they
// begin with the base directory as the property reads, or with /data/system/customize.
std::vector<std::string> AcceptedModuleDirs(const PropertyMap& request) {
    std::string base = fuzz_device::Property(kProperties[0]);
    if (base.empty()) base = "/mnt/cota";
    std::vector<std::string> accepted;
    for (const auto& [name, dir] : request) {
        if (StartsWith(name, "sys.") || StartsWith(name, "ro.")) continue;
        if (StartsWith(dir, base) || StartsWith(dir, kCustomizeDir)) accepted.push_back(dir);
    }
    return accepted;
}

// The directories that making |dir| may create: each parent is the path up to a '/', made
// before the path below it.
std::set<std::string> DirsMadeFor(const std::string& dir) {
    std::set<std::string> made = {fuzz_device::NormalPath(dir)};
    for (size_t slash = dir.find('/', 1); slash != std::string::npos;
         slash = dir.find('/', slash + 1)) {
        made.insert(fuzz_device::NormalPath(dir.substr(0, slash)));
    }
    return made;
}

void ExpectImage(const PropertyMap& request, Expected* e) {
    e->consumed.push_back(kCotaMountInfoFile);
    const std::string verify = ValueOr(request, "sys.cotaimg.verify", "");
    const std::string source = ValueOr(request, "sys.cota.load.properties", "");
    const std::string target = ValueOr(request, "bind_point", "/my_carrier");
    if (verify == "1" && StartsWith(source, "/") && source != target) {
        e->binds.push_back({source, target, kCotaBindFlags, ""});
    }
    const PropertyMap forward = Forwarded(request, true);
    if (!forward.empty()) e->forwards.push_back(forward);
}

void ExpectModule(const PropertyMap& request, Expected* e) {
    e->consumed.push_back(kModuleRequest);
    const std::string source = ValueOr(request, "mount_point", "");
    const std::string target = ValueOr(request, "bind_point", "");
    if (request.count("module_type") == 0 || source.empty() || target.empty()) return;
    e->binds.push_back({source, target, kCotaBindFlags, ""});
    const PropertyMap forward = Forwarded(request, false);
    if (!g_fail_mounts && !forward.empty()) e->forwards.push_back(forward);
}

Expected Expect(const std::string& command) {
    Expected e;
    const bool image_request = access(kCotaMountInfoFile, F_OK) == 0;
    const bool module_request = access(kModuleRequest, F_OK) == 0;
    const PropertyMap image = LoadRequest(kCotaMountInfoFile);
    const PropertyMap module = LoadRequest(kModuleRequest);
    if (command == "mount_and_check_load" || command == "mount_must_load") {
        e.requests = image;
        if (image_request) ExpectImage(image, &e);
    } else if (command == "update_cota_info") {
        if (image_request) e.consumed.push_back(kCotaMountInfoFile);
    } else if (command == "bind_basic_point" && image_request) {
        e.requests = image;
        e.consumed.push_back(kCotaMountInfoFile);
        for (const std::string& dir : AcceptedModuleDirs(image)) e.dirs.merge(DirsMadeFor(dir));
        if (module_request) ExpectModule(module, &e);
        e.requests.insert(module.begin(), module.end());
        const PropertyMap forward = Forwarded(image, false);
        if (!forward.empty()) e.forwards.push_back(forward);
    } else if (command == "module_bind_single") {
        e.requests = module;
        if (module_request) ExpectModule(module, &e);
    }
    return e;
}

void Check(const Expected& e, const std::vector<std::pair<int, PropertyMap>>& batches,
           const std::map<std::string, fuzz_device::Entry>& before, const std::string& tree_text) {
    for (const char* path : e.consumed) {
        if (access(path, F_OK) == 0) fuzz_device::Fail(std::string("request left behind: ") + path);
    }
    std::vector<MountCall> binds;
    for (const MountCall& call : g_mounts) {
        if (call.flags == kCotaBindFlags) {
            binds.push_back(call);
        } else if (call.flags != (MS_BIND | MS_REC) || !StartsWith(call.source, "/my_") ||
                   call.target != call.media) {
            fuzz_device::Fail("mount of " + call.source + " on " + call.target + " with flags " +
                              std::to_string(call.flags));
        }
    }
    if (binds != e.binds) fuzz_device::Fail("binds other than the request allows");
    for (const PropertyMap& forward : e.forwards) {
        bool sent = false;
        for (const auto& [kind, batch] : batches) sent |= kind == 0 && batch == forward;
        if (!sent) fuzz_device::Fail("forwarded entries not sent as one batch");
    }
    // A request entry outside the forwarded prefixes reaches the host only if a property file
    // of the tree also names it.
    for (const auto& [kind, batch] : batches) {
        if (kind != 0) fuzz_device::Fail("batch of kind " + std::to_string(kind));
        for (const auto& [name, value] : batch) {
            if (e.requests.count(name) == 0 || StartsWith(name, "sys.") ||
                StartsWith(name, "ro.") || StartsWith(name, "persisit.")) {
                continue;
            }
            if (tree_text.find(name) == std::string::npos) fuzz_device::Fail("request entry forwarded: " + name + "=" + value + " in a batch of " + std::to_string(batch.size()));
        }
    }
    for (const auto& [path, entry] : fuzz_device::WalkRoot()) {
        if (!entry.directory || before.count(path) != 0) continue;
        if (e.dirs.count(path) == 0) {
            fuzz_device::Fail("directory created that no accepted module directory names: " +
                              path);
        }
    }
}

// Whether a module directory of the request would make a directory in this process's working
// directory, the host's own directory in the device root: such an input is not run.
bool ReachesHostDirectory(const PropertyMap& request) {
    static const std::string cwd = std::filesystem::current_path().string();
    for (const std::string& dir : AcceptedModuleDirs(request)) {
        for (const std::string& made : DirsMadeFor(dir)) {
            if (made == cwd || StartsWith(made, cwd + "/")) return true;
        }
    }
    return false;
}

// Removes the directories made since |before| outside the tree's top-level directories (a module
// directory may lead there through ".."): FreshInput empties only the top level.
void RemoveOutsideTree(const std::map<std::string, fuzz_device::Entry>& before) {
    for (const auto& [path, entry] : fuzz_device::WalkRoot()) {
        if (!entry.directory || before.count(path) != 0 || fuzz_device::InTree(path)) continue;
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
}

// Every property file of the tree, as one text (the request files excluded).
std::string TreeText(const std::map<std::string, fuzz_device::Entry>& tree) {
    std::string text;
    for (const auto& [path, entry] : tree) {
        if (path != kCotaMountInfoFile && path != kModuleRequest) text += entry.content + "\n";
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    fuzz_device::Start(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_device::FreshInput();
    g_fail_mounts = false;
    InitExtensionPropertyImpl impl;
    std::string* keys[] = {&impl.regionSwitchKey,         &impl.simSwitchFirstKey,
                           &impl.simSwitchCurrentKey,     &impl.switchCarrierChannelKey,
                           &impl.nvOldKey,                &impl.ssvOldKey};
    std::vector<std::string> commands;
    for (const fuzz_device::Field& f : fuzz_device::Fields(data, size)) {
        if (f.kind == 'c' && f.index < std::size(kCommands)) commands.push_back(kCommands[f.index]);
        if (f.kind == 'f' && f.index < std::size(kFiles)) fuzz_device::PutFile(kFiles[f.index], f.text);
        // The module base stays in the tree: what is made there goes with the input.
        if (f.kind == 'p' && f.index < std::size(kProperties) &&
            (f.index != 0 || fuzz_device::InTree(f.text))) {
            hostplatform::SetProperty(kProperties[f.index], f.text);
        }
        if (f.kind == 'd' && fuzz_device::InTree(f.text)) {
            std::error_code ec;
            std::filesystem::create_directories(f.text, ec);
        }
        if (f.kind == 'k' && f.index < std::size(keys)) *keys[f.index] = f.text;
        if (f.kind == 'm') g_fail_mounts = true;
    }
    if (DisplayStart().size() == 1) return 0;  // the documented end of the process, not a finding
    if (ReachesHostDirectory(LoadRequest(kCotaMountInfoFile))) return 0;

    for (const std::string& command : commands) {
        const Expected expected = Expect(command);
        const auto before = fuzz_device::WalkRoot();
        std::vector<std::pair<int, PropertyMap>> batches;
        g_mounts.clear();
        g_record = true;
        impl.loadCotaServiceOverrideProperties(command, [&](int kind, PropertyMap batch) {
            ApplyBatchAsHost(batch);
            batches.emplace_back(kind, std::move(batch));
        });
        g_record = false;
        Check(expected, batches, before, TreeText(before));
        RemoveOutsideTree(before);
    }
    return 0;
}
