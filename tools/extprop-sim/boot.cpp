// SPDX-License-Identifier: Apache-2.0
#include "boot.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "IInitExtensionProperty.h"
#include "boot_sequence.h"
#include "build_config.h"
#include "hostplatform/property_store.h"
#include "init_sink.h"
#include "option_file.h"
#include "script_assertions.h"

namespace extprop_sim {
namespace {

using android::init::IInitExtensionProperty;
using Factory = IInitExtensionProperty* (*)(const char*);

// The name init hands the factory.
constexpr char kLibraryName[] = "libzelvaextproperty.so";
constexpr char kCotaRequestSlot[] = "sys.cota.bind.load.properties";
constexpr char kCotaRequestFile[] = "/data/cota/cota_mount_info.prop";
constexpr std::chrono::milliseconds kDefaultWait(kDefaultWaitMs);

struct SlotInfo {
    int slot;
    const char* operation;
    size_t args;  // string arguments the operation takes in a script
};

constexpr SlotInfo kSlots[] = {
        {2, "setLibName", 1},
        {3, "bindCustomizeMediaPath", 1},
        {4, "loadExtensionPartitionProperties", 0},
        {5, "loadExtensionPartitionProperties", 1},
        {6, "loadPersistOverrideProperties", 0},
        {7, "loadCotaOverrideProperties", 0},
        {8, "loadNightjarOverrideProperties", 0},
        {9, "loadSimSwitchOverrideProperties", 0},
        {10, "loadSimSwitchOverrideProperties", 1},
        {11, "loadOverrideProperty", 2},
        {12, "loadCotaServiceOverrideProperties", 1},
};

const SlotInfo* FindSlot(int slot) {
    for (const SlotInfo& info : kSlots) {
        if (info.slot == slot) return &info;
    }
    return nullptr;
}

std::chrono::milliseconds WaitArg(const std::vector<std::string>& args, size_t index) {
    int ms;
    if (args.size() > index && android::base::ParseInt(args[index], &ms, 0)) {
        return std::chrono::milliseconds(ms);
    }
    return kDefaultWait;
}

bool WaitForProperty(const std::string& name, const std::string& value,
                     std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (hostplatform::GetProperty(name).value_or("") != value) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void CallSlot(const Step& step, IInitExtensionProperty* object, sandbox::Context& ctx,
              InitSink& init, const std::string& note_key) {
    const std::vector<std::string>& a = step.args;
    const sandbox::Sink sink = init.sink();
    android::init::PropertyMap map;
    switch (step.slot) {
        case 2:
            object->setLibName(a[0].c_str());
            break;
        case 3:
            object->bindCustomizeMediaPath(a[0].c_str());
            break;
        case 4:
            object->loadExtensionPartitionProperties(&map);
            sink(kFilledMapKind, std::move(map));
            break;
        case 5:
            object->loadExtensionPartitionProperties(a[0], &map);
            sink(kFilledMapKind, std::move(map));
            break;
        case 6:
            ctx.Note(note_key, std::to_string(object->loadPersistOverrideProperties(sink)));
            break;
        case 7:
            object->loadCotaOverrideProperties(sink);
            break;
        case 8:
            object->loadNightjarOverrideProperties(sink);
            break;
        case 9:
            object->loadSimSwitchOverrideProperties(sink);
            break;
        case 10:
            object->loadSimSwitchOverrideProperties(a[0], sink);
            break;
        case 11:
            ctx.Note(note_key, std::to_string(object->loadOverrideProperty(a[0], a[1], sink)));
            break;
        case 12:
            object->loadCotaServiceOverrideProperties(a[0], sink);
            break;
    }
}

// The COTA service at boot: it posts "boot_mount" when it left a request,
// waits for the thread to take it, then tells the thread that boot is done.
void CotaBootSession(sandbox::Context& ctx, const std::string& note_key) {
    std::string served = "none";
    if (access(kCotaRequestFile, F_OK) == 0) {
        hostplatform::SetProperty(kCotaRequestSlot, "boot_mount");
        served = WaitForProperty(kCotaRequestSlot, "null", kDefaultWait) ? "boot_mount"
                                                                         : "boot_mount (not taken)";
    }
    hostplatform::SetProperty(kCotaRequestSlot, "boot_mount_bind_complete");
    // The thread re-reads the slot at once, or within one 200 ms poll.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ctx.Note(note_key, served);
}

void ExecuteStep(const Step& step, IInitExtensionProperty* object, sandbox::Context& ctx,
                 InitSink& init, const std::string& note_key) {
    const std::vector<std::string>& a = step.args;
    switch (step.kind) {
        case Step::Kind::kSlot:
            CallSlot(step, object, ctx, init, note_key);
            break;
        case Step::Kind::kSetProp:
            hostplatform::SetProperty(a[0], a[1]);
            break;
        case Step::Kind::kSleep:
            std::this_thread::sleep_for(WaitArg(a, 0));
            break;
        case Step::Kind::kWrite: {
            std::error_code ec;
            std::filesystem::create_directories(std::filesystem::path(a[0]).parent_path(), ec);
            ctx.Note(note_key,
                     android::base::WriteStringToFile(a[1], a[0]) ? "written" : "write failed");
            break;
        }
        case Step::Kind::kWaitProp:
            if (WaitForProperty(a[0], a[1], WaitArg(a, 2))) {
                ctx.Note(note_key, "seen");
            } else {
                NoteWaitTimeout(step, ctx, note_key);
            }
            break;
        case Step::Kind::kWaitLog:
            if (ctx.WaitForLog(a[0], WaitArg(a, 1))) {
                ctx.Note(note_key, "seen");
            } else {
                NoteWaitTimeout(step, ctx, note_key);
            }
            break;
        case Step::Kind::kCotaBoot:
            CotaBootSession(ctx, note_key);
            break;
        case Step::Kind::kHost:
            init.SetHost(*ParseHostMode(a[0]));
            break;
        case Step::Kind::kSimSwitch:
            SwitchSim(a[0], ctx, note_key);
            break;
        case Step::Kind::kExpectProp:
        case Step::Kind::kExpectNoProp:
        case Step::Kind::kExpectFile:
            CheckInDevice(step, ctx, note_key);
            break;
        default:  // restarts run before the new boot; record assertions after the boots
            break;
    }
}

}  // namespace

std::string OperationName(int slot) {
    const SlotInfo* info = FindSlot(slot);
    return info != nullptr ? info->operation : "";
}

size_t SlotArgCount(int slot) {
    const SlotInfo* info = FindSlot(slot);
    return info != nullptr ? info->args : 0;
}

int SlotOf(const std::string& name, size_t arg_count) {
    for (const SlotInfo& info : kSlots) {
        if (name == info.operation && arg_count == info.args) return info.slot;
    }
    return -1;
}

std::vector<Step> DefaultBootSteps() {
    using K = Step::Kind;
    return {
            {K::kSlot, 4, {}},
            {K::kSlot, 5, {"/my_carrier"}},
            {K::kSlot, 6, {}},
            {K::kSlot, 7, {}},
            {K::kSlot, 9, {}},
            {K::kSlot, 10, {"propertiesOverrideSwitch"}},
            {K::kSlot, 10, {"triggerLogoCopyFromCompanyBoot"}},
            {K::kSlot, 8, {}},
            {K::kSlot, 3, {"/system/media"}},
            {K::kSlot, 11, {"", ""}},
            {K::kSlot, 12, {"check_mount"}},
            {K::kCotaBoot, -1, {}},
    };
}

bool ReadPropsFile(const std::string& path, PropertyMap* props, std::string* error) {
    auto text = ReadOptionFile(path);
    if (!text.ok()) {
        *error = text.error().message();
        return false;
    }
    std::istringstream in(*text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        line = android::base::Trim(line);
        if (line.empty() || line[0] == '#') continue;
        const size_t eq = line.find('=');
        if (eq == std::string::npos || eq == 0) {
            *error = path + ":" + std::to_string(number) + ": expected name=value";
            return false;
        }
        (*props)[android::base::Trim(line.substr(0, eq))] =
                android::base::Trim(line.substr(eq + 1));
    }
    return true;
}

std::string DefaultLibraryPath() {
    return android::base::GetExecutableDirectory() + "/" EXTPROP_SIM_DEFAULT_LIBRARY;
}

int StepIndex(const std::string& label) {
    if (label.empty() || label.find_first_not_of("0123456789") != std::string::npos) return -1;
    return std::stoi(label);
}

BootResult RunBoot(const BootConfig& config) {
    BootResult result;
    result.steps = config.steps;

    void* handle = dlopen(config.library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        result.error = std::string("cannot load library: ") + dlerror();
        return result;
    }
    auto factory = reinterpret_cast<Factory>(dlsym(handle, "QRAV_FETCH_IInitExtensionProperty"));
    if (factory == nullptr) {
        result.error = "library " + config.library + " has no QRAV_FETCH_IInitExtensionProperty";
        return result;
    }

    // A failure shows only when the device holds property contexts.
    (void)LoadAndroidSelinux();
    UseUtf8Locale();
    InitSetup init = config.init;
    if (auto legal = LibraryLegalityChecks(handle); legal.ok()) {
        init.legal = *legal;
    } else {
        result.error = legal.error().message();
        return result;
    }

    std::string error;
    std::unique_ptr<sandbox::ScratchRoot> root =
            sandbox::ScratchRoot::Create(sandbox::DeviceTree().CopyFrom(config.tree), &error);
    if (!root) {
        result.error = "cannot prepare the device root: " + error;
        return result;
    }
    if (config.keep_root) root->Keep();
    result.root = root->changes();
    // The one line that says the boot costs a copy of the tree here.
    if (!root->fallback().empty()) fprintf(stderr, "extprop-sim: %s\n", root->fallback().c_str());

    sandbox::Options options;
    options.properties = config.properties;
    options.echo_logs = config.echo_logs;
    options.min_severity = config.verbose ? android::base::VERBOSE : android::base::INFO;
    options.capture_tree = false;
    options.apply_batches = false;  // init's rules set them, in the device
    options.timeout = std::chrono::minutes(10);

    // Each boot of the sequence is its own process over the same root.
    const std::vector<Step>& steps = config.steps;
    const std::vector<int> boots = BootNumbers(steps);
    for (size_t first = 0; first < steps.size() || first == 0;) {
        size_t end = first + 1;
        while (end < steps.size() && boots[end] == boots[first]) ++end;
        const Step* restart =
                first < steps.size() && StartsBoot(steps[first]) ? &steps[first] : nullptr;
        PartitionImage image;
        if (restart != nullptr && restart->kind == Step::Kind::kOta &&
            !ReadPartitionImage(*restart, &image, &result.error)) {
            return result;
        }
        options.properties =
                PropertiesAtBoot(config.properties, result.outcome.properties, restart);
        for (size_t i = 0; i < first; ++i) {  // host steps of the boots before hold on
            if (steps[i].kind == Step::Kind::kHost) init.host = *ParseHostMode(steps[i].args[0]);
        }
        sandbox::Outcome outcome = sandbox::Run(*root, options, [&](sandbox::Context& ctx) {
            // The restart and the object's making belong to the restart step.
            const std::string restart_label = std::to_string(first);
            if (restart != nullptr) {
                ctx.SetStep(restart_label);
                RestartDevice(*restart, image, ctx, restart_label);
            }
            if (config.before_steps) config.before_steps(ctx);
            InitSink init_sink(ctx, init);
            if (!init_sink.ready()) return;
            ctx.SetStep(restart != nullptr ? restart_label : "factory");
            IInitExtensionProperty* object = factory(kLibraryName);
            for (size_t i = first; i < end && i < steps.size(); ++i) {
                ctx.SetStep(std::to_string(i));
                ExecuteStep(steps[i], object, ctx, init_sink, std::to_string(i));
                if (config.after_step) config.after_step(ctx, i);
            }
            ctx.SetStep("end");
        });
        AppendBoot(&result.outcome, std::move(outcome));
        if (!result.outcome.Completed()) break;
        first = end;
    }
    result.failures = CheckScript(&result);
    if (!result.outcome.Completed()) result.error = result.outcome.Describe();
    if (auto contexts = ContextsError(result.outcome)) result.error = *contexts;
    return result;
}

}  // namespace extprop_sim
