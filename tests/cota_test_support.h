// Helpers shared by the SIM-switch, media path and COTA tests.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ZelvaExtensionProperty.h"
#include "test_support.h"

namespace zelva_test {

// Every mount() of this process since the last call, one "source>target 0xFLAGS"
// a line. The test binary's own mount() records each call, then makes it, so the
// flags the library asks for can be checked where the kernel ignores some of
// them (MS_RDONLY in a first bind).
std::string TakeMountCalls();

// With these two properties set, loadSpecialProperties sends kSpecialBatch.
inline const PropertyMap kSpecialSeed = {{"ro.vendor.zelva.version_suffix", "T"},
                                         {"ro.build.display.id", "QX100_11"}};
inline const PropertyMap kSpecialBatch = {{"ro.vendor.zelva.exp.version", "QX100T_11"}};
constexpr char kDisplay[] = "ro.zelva.customize.display.version_name";
constexpr char kMountInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";

inline android::init::InitExtensionPropertyImpl* Impl() {
    return android::init::InitExtensionPropertyImpl::getInstance();
}

inline PropertyMap Merge(PropertyMap a, const PropertyMap& b) {
    a.insert(b.begin(), b.end());
    return a;
}

// Runs |fn| in a device laid out from |tree| with |props| set; the mount calls
// made during |fn| come back as the note "mounts".
inline sandbox::Outcome RunDevice(const sandbox::DeviceTree& tree, const PropertyMap& props,
                                  const std::function<void(sandbox::Context&)>& fn) {
    sandbox::Options options;
    options.properties = props;
    options.timeout = std::chrono::seconds(30);
    auto run = [&](sandbox::Context& ctx) {
        TakeMountCalls();
        fn(ctx);
        ctx.Note("mounts", TakeMountCalls());
    };
    return RunInDevice(tree, run, options);
}

// Every batch, all of which must be of kind 0.
inline std::vector<PropertyMap> Sent(const sandbox::Outcome& outcome) {
    EXPECT_EQ(BatchesOfKind(outcome, 0).size(), outcome.batches.size()) << "a batch not of kind 0";
    return BatchesOfKind(outcome, 0);
}

// Lays out a request file: nullopt leaves it missing; "->" makes it a symlink to
// a valid file, a request that exists but fails to load (links aren't followed).
inline void AddRequest(sandbox::DeviceTree* tree, const char* path,
                       const std::optional<std::string>& content) {
    tree->File("/data/cota/real.prop", "sys.x=1\n");
    if (content == "->") {
        tree->Symlink(path, "real.prop");
    } else if (content) {
        tree->File(path, *content);
    }
}

}  // namespace zelva_test
