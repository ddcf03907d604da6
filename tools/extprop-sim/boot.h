// SPDX-License-Identifier: Apache-2.0
// Booting the extension library the way init does: dlopen it, fetch the
// object through QRAV_FETCH_IInitExtensionProperty and call its operations,
// inside the device-root sandbox, setting every batch as init would.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "init_sink.h"
#include "sandbox.h"

namespace extprop_sim {

using PropertyMap = std::map<std::string, std::string>;

// One step of a boot: an operation of the object, or an action of the
// simulated system around it.
struct Step {
    enum class Kind {
        kSlot,      // an operation: slot number and its string arguments
        kSetProp,   // setprop NAME VALUE
        kSleep,     // sleep MS
        kWrite,     // write PATH TEXT  (a file, as the COTA service writes requests)
        kWaitProp,  // wait-prop NAME VALUE [MS]
        kWaitLog,   // wait-log TEXT [MS]
        kCotaBoot,  // cota-boot: the COTA service's boot requests to the bind thread
        kHost,      // host vendor|aosp: the init rules from here on
        // The device restarts: a new process loads the library again. /data,
        // the reserve partition and persist.* properties carry over.
        kReboot,     // reboot
        kWipeData,   // wipe-data: a reboot with /data and persist.* emptied
        kOta,        // ota PARTITION DIR: a reboot with the partition's content replaced by DIR's
        kSimSwitch,  // sim-switch KEY: what the system records for a new SIM
        // Assertions: a failed one makes the run exit 1; the run goes on.
        kExpectProp,    // expect-prop NAME VALUE
        kExpectNoProp,  // expect-no-prop NAME
        kExpectFile,    // expect-file PATH CONTENT
        kExpectBatch,   // expect-batch SLOT KIND NAME=VALUE...
        kExpectLog,     // expect-log SEVERITY TEXT
        kExpectNoLog,   // expect-no-log TEXT
    };
    Kind kind;
    int slot = -1;
    std::vector<std::string> args;
    int line = 0;  // of the script, for messages; 0 for init's own boot sequence

    // "slot 6 loadPersistOverrideProperties", "setprop a b", ...
    std::string Describe() const;
};

// How long wait-prop and wait-log wait when the script doesn't say.
constexpr int kDefaultWaitMs = 5000;

// The operation name of a slot, or "" for a slot that doesn't exist.
std::string OperationName(int slot);
// The slot of an operation name or "slot N" number; -1 if unknown. Overloaded
// operations take their slot from the argument count.
int SlotOf(const std::string& name, size_t arg_count);
// The string arguments an operation's slot takes in a script.
size_t SlotArgCount(int slot);

// What init does at boot with the library, in the order of its boot points.
std::vector<Step> DefaultBootSteps();

// Parses a script: one step a line; blank lines and '#' comments skipped.
// Arguments are separated by blanks; "double quotes" keep blanks, and \n in
// write's text is a line feed.
bool ParseScript(const std::string& text, std::vector<Step>* steps, std::string* error);
// An ota step's relative DIR is taken from the script file's directory (from
// the working directory when the script is no regular file: a pipe, stdin).
void ResolveScriptPaths(const std::string& script_file, std::vector<Step>* steps);

struct BootConfig {
    std::string tree;        // device tree directory to copy
    PropertyMap properties;  // system properties before boot
    std::string library;     // path of libzelvaextproperty.so
    std::vector<Step> steps;
    bool echo_logs = false;  // the library's log on stderr as it happens
    bool verbose = false;    // VERBOSE records too
    bool keep_root = false;
    // The init that receives the batches; its legality checks are taken from
    // the library when the boot loads it.
    InitSetup init;
    // Runs inside the device before the object is made.
    std::function<void(sandbox::Context& ctx)> before_steps;
    // Runs inside the device after each step, with the step's index: a look at
    // the files as the step left them (through the mounts the library made).
    std::function<void(sandbox::Context& ctx, size_t step)> after_step;
};

// A script assertion that didn't hold, or a wait that timed out.
struct AssertionFailure {
    size_t step;
    std::string expected;
    std::string seen;
};

struct BootResult {
    std::string error;  // set when the boot couldn't run
    std::string root;   // what the boot wrote: the overlay's upper layer (kept only on request)
    std::vector<Step> steps;
    sandbox::Outcome outcome;  // batches carry the step index as their step
    // Each failed assertion (and timed-out wait) of a script, in step order.
    std::vector<AssertionFailure> failures;
};

// Batches of slots 4 and 5 are maps filled in place; they are reported with
// this kind code.
constexpr int kFilledMapKind = -1;

BootResult RunBoot(const BootConfig& config);

// The index of the step that a batch or log record belongs to (its step
// label), or -1 for those outside the steps ("factory", "end").
int StepIndex(const std::string& label);

// Reads "name=value" lines into |props|.
bool ReadPropsFile(const std::string& path, PropertyMap* props, std::string* error);

// The default library: libzelvaextproperty.so.<major> in the libdir that
// this executable was built for, relative to its own directory.
std::string DefaultLibraryPath();

}  // namespace extprop_sim
