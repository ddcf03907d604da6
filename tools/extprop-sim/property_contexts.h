// SPDX-License-Identifier: Apache-2.0
// SELinux property contexts as init checks them: the context of a property
// name comes from Android's own libselinux property backend, and the type a
// context line may carry (bool, int, uint, double, size, enum ..., string)
// from that line. libselinux is loaded privately (RTLD_LOCAL), so that its
// selinux_android_restorecon never takes the place of the host's stand-in
// that the extension library calls.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <android-base/result.h>

namespace extprop_sim {

// Loads Android's libselinux, once. The device root has no host libraries:
// call this before entering it.
android::base::Result<void> LoadAndroidSelinux();

// The files init loads, in its order, at their device paths.
extern const std::vector<std::string> kStandardPropertyContexts;

struct ContextsFile {
    std::string source;   // where it came from, for the report
    std::string content;  // property_contexts lines
};

struct PropertyContext {
    std::string context;  // "u:object_r:x_prop:s0"
    std::string type;     // "bool", "enum a b", ... or "" when the line gives none
};

class PropertyContexts {
  public:
    // Builds the lookup through libselinux; the files are written under
    // |scratch_dir| for it to read and removed again.
    static android::base::Result<std::unique_ptr<PropertyContexts>> Load(
            const std::vector<ContextsFile>& files, const std::string& scratch_dir);
    ~PropertyContexts();

    // The context init finds for |name|, or nullopt when it finds none.
    std::optional<PropertyContext> Lookup(const std::string& name) const;
    const std::vector<std::string>& sources() const { return sources_; }

  private:
    struct Line {
        std::string name;
        std::string context;
        bool exact;
        std::string type;
    };
    struct Backend;

    PropertyContexts() = default;

    std::unique_ptr<Backend> backend_;
    std::vector<Line> lines_;
    std::vector<std::string> sources_;
};

// Whether init's type check lets |value| through for |type| (a context
// line's type words; "" and "string" take anything).
bool ValueMatchesType(const std::string& type, const std::string& value);

}  // namespace extprop_sim
