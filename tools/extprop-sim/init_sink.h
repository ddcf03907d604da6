// SPDX-License-Identifier: Apache-2.0
// init's side of the sink, inside the device: each entry of each batch the
// library hands over is set in the property store or refused by the init
// rules, as init would, so that later operations see the store init really
// has. Refusals go back to the report as notes.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "init_rules.h"
#include "sandbox.h"

namespace extprop_sim {

struct InitSetup {
    HostMode host = HostMode::kVendor;
    LegalityChecks legal;
    std::vector<ContextsFile> contexts_files;  // --property-contexts, read on the host
    bool find_tree_contexts = true;            // also the tree's files at the standard places
    std::string context_of;                    // a name whose context the report shows
};

// Reads the property contexts inside the device: the given files, then the
// tree's files at the standard places. No file at all: nullptr (the check is
// off). A file libselinux or the parser refuses is an error.
android::base::Result<std::unique_ptr<PropertyContexts>> LoadDeviceContexts(
        const std::vector<ContextsFile>& given, bool find_in_tree);

// init's values are UTF-8. Call on the host, before the sandbox.
void UseUtf8Locale();

class InitSink {
  public:
    // Inside the device, before the object is made. Reports the contexts in
    // use (or why they can't be) as notes. The library's value check reads
    // values in the process's locale: set a UTF-8 one before entering the
    // device, whose root holds no locale files (UseUtf8Locale).
    InitSink(sandbox::Context& device, const InitSetup& setup);

    // False when the contexts could not be loaded; the boot mustn't go on.
    bool ready() const { return ready_; }
    sandbox::Sink sink();
    // A script's "host" step.
    void SetHost(HostMode host);

  private:
    void Apply(int kind, sandbox::PropertyMap props);

    sandbox::Context& device_;
    InitRules rules_;
    std::unique_ptr<PropertyContexts> contexts_;
    std::mutex lock_;  // the COTA bind thread hands batches over too
    size_t batches_ = 0;
    bool ready_ = true;
};

// What the device reported, read back on the host.
// The reason entry |name| of batch |batch| was refused, or nullopt.
std::optional<std::string> RefusalOf(const sandbox::Outcome& outcome, size_t batch,
                                     const std::string& name);
// Renumbers the refusals a later boot of a sequence noted (its sink counts
// from 0) to follow the |batches_before| batches of the boots before it.
void RenumberRefusals(sandbox::PropertyMap* notes, size_t batches_before);
// Every entry of batch |batch| that init refused, by name, with its reason.
std::map<std::string_view, std::string_view> RefusalsOf(const sandbox::Outcome& outcome,
                                                         size_t batch);
// "off (...)" or the contexts files in use.
std::string ContextsInUse(const sandbox::Outcome& outcome);
// The context of InitSetup::context_of: "u:object_r:x:s0 (type bool)", "none",
// or nullopt when the context check was off.
std::optional<std::string> ContextOfNamed(const sandbox::Outcome& outcome);
// Set when the contexts couldn't be loaded.
std::optional<std::string> ContextsError(const sandbox::Outcome& outcome);

}  // namespace extprop_sim
