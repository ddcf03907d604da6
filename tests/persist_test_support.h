// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the object, partition, persist, special and switch-key tests.
#pragma once

#include <android-base/file.h>  // and with it <sys/stat.h> and <unistd.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "expectations.h"
#include "hostplatform/property_store.h"
#include "test_support.h"

namespace zelva_test {

inline auto* Obj() {
    return android::init::InitExtensionPropertyImpl::getInstance();
}

// Inside the device: hands |map| back to the test under |name|, so that a map the library
// filled (rather than sent) can be compared there as a value.
inline void ShowMap(sandbox::Context& ctx, const std::string& name, const PropertyMap& map) {
    ctx.SetStep("map " + name);
    ctx.sink()(kOrdinary, map);
}
// The map shown under |name|; nullopt when the device never showed it.
inline std::optional<PropertyMap> ShownMap(const sandbox::Outcome& outcome,
                                           const std::string& name) {
    const std::vector<SentBatch> shown = SentBatches(outcome, "map " + name);
    if (shown.empty()) return std::nullopt;
    return shown.front().props;
}

// Runs |run| for each row in one device, as the step named row.name, the store holding only
// row.properties.
template <typename Row>
sandbox::Outcome RunRows(const sandbox::DeviceTree& tree, const std::vector<Row>& rows,
                         const std::function<void(sandbox::Context&, const Row&)>& run) {
    return RunInDevice(tree, [&](sandbox::Context& ctx) {
        for (const Row& row : rows) {
            hostplatform::ResetProperties();
            for (const auto& [name, value] : row.properties) hostplatform::SetProperty(name, value);
            ctx.SetStep(row.name);
            run(ctx, row);
        }
    });
}

// Inside the device: puts at |path| a node that exists but can't be opened (a socket).
inline void MakeUnopenable(const std::string& path) {
    unlink(path.c_str());
    mknod(path.c_str(), S_IFSOCK | 0600, 0);
}

}  // namespace zelva_test
