// SPDX-License-Identifier: Apache-2.0
// The partition property sets (slots 4 and 5 and the key-selected sets), the logo copy (slots 9
// and 10) and the exported file helpers, each against a small model, in a device root entered
// in-process.
//
// - Key-selected sets: for keys holding "/", "." or "..", exactly the files that the paths
//   <dir>/etc/build.<key>.prop and <dir>/properties/<key>/<set>/*.prop name are read, in the
//   fixed order of the sets. The model resolves those paths over the files it made itself.
// - Slot 4: the partitions' build.prop files apply in list order, then the component-priority
//   rule: a carrier image type other than "empty" adds ro.zelva.cust.ver=1 unless it is set.
// - Logo: a source larger than the partition is never copied, partition bytes past the source
//   stay as they were, and the copied date is recorded only for the company triggers.
// - ReadFdToStringWithOffset gives exactly |length| bytes, zeros past the end of the file;
//   trimPath and getPathName follow their rules; a WriteStringToFile that fails leaves no file.

#include <signal.h>
#include <sys/resource.h>

#include <optional>
#include <set>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "fuzz_device.h"

namespace {

using android::base::StartsWith;
using android::init::CustDirList;
using android::init::InitExtensionPropertyImpl;
using fuzz_input::Pick;

constexpr const char* kKeys[] = {"k", "a/b", "..", "../k", "k/..", ".", "a/../k", "", "/k"};
constexpr const char* kSets[] = {"SimSwitchCurrentTime", "SimSwitchFirstTime",
                                 "switchCarrierChannel", "regionSwitch"};

// --- Key-selected sets ---

// What the model made: directories and files, by normal path.
std::set<std::string> g_dirs;
std::map<std::string, std::string> g_files;  // path -> the one name it sets

bool MakeDirs(const std::string& path) {
    std::error_code ec;
    std::filesystem::create_directories(path, ec);
    if (ec) return false;  // a file stands where a directory would go
    for (std::filesystem::path p(path); p != p.root_path(); p = p.parent_path()) {
        g_dirs.insert(p.string());
    }
    return true;
}

// Resolves |path| as the kernel would over what the model made (no links): a ".." needs the
// directory it leaves to exist. nullopt when the path names nothing.
std::optional<std::string> Resolve(const std::string& path) {
    std::string current;
    for (const std::string& part : android::base::Split(path, "/")) {
        if (part.empty() || part == ".") {
            if (!current.empty() && g_dirs.count(current) == 0) return std::nullopt;
            continue;
        }
        if (!current.empty() && g_dirs.count(current) == 0) return std::nullopt;
        if (part == "..") {
            current = current.substr(0, current.rfind('/'));
        } else {
            current += "/" + part;
        }
    }
    if (current.empty()) current = "/";
    if (g_dirs.count(current) == 0 && g_files.count(current) == 0 && current != "/") {
        return std::nullopt;
    }
    return current;
}

void CheckKeySets(FuzzedDataProvider& in) {
    g_dirs = std::set<std::string>(std::begin(fuzz_device::kTopLevel), std::end(fuzz_device::kTopLevel));
    g_files.clear();
    const std::string dir = "/my_carrier";
    // Files at paths the keys may (or, through "..", may not) reach.
    for (size_t n = in.ConsumeIntegralInRange(1, 8), i = 0; i < n; ++i) {
        const std::string key = Pick(in, kKeys);
        std::string path = in.ConsumeBool()
                                   ? dir + "/etc/build." + key + ".prop"
                                   : dir + "/properties/" + key + "/" + Pick(in, kSets) + "/" +
                                             (in.ConsumeBool() ? "f" : "g") + ".prop";
        path = std::filesystem::path(path).lexically_normal().string();
        if (!fuzz_device::InTree(path) || g_dirs.count(path) != 0 || g_files.count(path) != 0) {
            continue;
        }
        if (!MakeDirs(std::filesystem::path(path).parent_path().string())) continue;
        if (in.ConsumeIntegralInRange(0, 5) == 0) {
            MakeDirs(path);  // a directory named like a property file is skipped
            continue;
        }
        const std::string name = "p" + std::to_string(g_files.size());
        fuzz_device::PutFile(path, name + "=" + path + "\n");
        g_files[path] = name;
    }

    InitExtensionPropertyImpl impl;
    std::string* keys[] = {&impl.nvOldKey,           &impl.ssvOldKey,
                           &impl.simSwitchCurrentKey, &impl.simSwitchFirstKey,
                           &impl.switchCarrierChannelKey, &impl.regionSwitchKey};
    for (std::string* key : keys) *key = Pick(in, kKeys);

    PropertyMap expected;
    const auto load = [&](const std::string& path) {
        auto it = g_files.find(path);
        if (it != g_files.end()) expected[it->second] = path;
    };
    for (int i = 0; i < 2; ++i) {
        if (keys[i]->empty()) continue;
        if (auto path = Resolve(dir + "/etc/build." + *keys[i] + ".prop")) load(*path);
    }
    for (int i = 2; i < 6; ++i) {
        if (keys[i]->empty()) continue;
        auto set = Resolve(dir + "/properties/" + *keys[i] + "/" + kSets[i - 2]);
        if (!set || g_dirs.count(*set) == 0) continue;
        for (const auto& [path, name] : g_files) {
            if (std::filesystem::path(path).parent_path() == *set && android::base::EndsWith(path, ".prop")) {
                load(path);
            }
        }
    }
    PropertyMap props;
    impl.loadExtensionPartitionSimswitchProperties(dir, &props);
    if (props != expected) fuzz_device::Fail("key-selected sets");
}

// --- Slot 4 and the component-priority rule ---

void CheckPartitions(FuzzedDataProvider& in) {
    constexpr const char* kNames[] = {"ro.zelva.image.my_carrier.type", "ro.zelva.cust.ver", "x"};
    constexpr const char* kValues[] = {"empty", "Empty", "empty ", "", "1", "v"};
    PropertyMap expected;
    for (size_t n = in.ConsumeIntegralInRange(0, 2), i = 0; i < n; ++i) {
        expected[Pick(in, kNames)] = Pick(in, kValues);
    }
    PropertyMap props = expected;
    std::map<size_t, std::string> files;  // directory index -> build.prop content
    for (size_t n = in.ConsumeIntegralInRange(0, 4), i = 0; i < n; ++i) {
        const size_t dir = in.ConsumeIntegralInRange<size_t>(0, CustDirList().size() - 1);
        const std::string line = Pick(in, kNames) + "=" + Pick(in, kValues) + "\n";
        if (!fuzz_device::InTree(CustDirList()[dir])) continue;
        files[dir] += line;
        fuzz_device::PutFile(CustDirList()[dir] + "/build.prop", files[dir]);
    }
    // A later file's value replaces an earlier one; the parser trims the value's blanks.
    for (const auto& [dir, text] : files) {
        for (const std::string& line : android::base::Split(text, "\n")) {
            if (line.empty()) continue;
            expected[line.substr(0, line.find('='))] = android::base::Trim(line.substr(line.find('=') + 1));
        }
    }
    auto type = expected.find(kNames[0]);
    if (type != expected.end() && type->second != "empty") expected.emplace(kNames[1], "1");

    InitExtensionPropertyImpl impl;
    impl.loadExtensionPartitionProperties(&props);
    if (props != expected) fuzz_device::Fail("slot 4 properties");
}

// --- Logo copy ---

using android::init::kLogoBinary;
using android::init::kLogoImage;
constexpr const char* kPartition = android::init::kLogoTarget;
constexpr char kCopiedDate[] = "persist.record.my_company.date.forlogo";
constexpr char kImageDate[] = "ro.zelva.image.my_company.date.utc";

std::string Bytes(FuzzedDataProvider& in, char fill) {
    return std::string(in.ConsumeIntegralInRange(0, 64), fill);
}

void CheckLogo(FuzzedDataProvider& in) {
    const std::string path_trigger = std::string("triggerLogoCopy") + kLogoBinary;
    const char* const kTriggers[] = {"triggerLogoCopyFromCompanyBoot",
                                         "triggerLogoCopyFromCompany",
                                         path_trigger.c_str(),
                                         "triggerLogoCopyX/missing", "triggerLogoCopy",
                                         "propertiesOverrideSwitch", "propertiesOverrideSwitchX"};
    constexpr const char* kDates[] = {"", "1", "2"};
    std::optional<std::string> partition, image, binary;
    if (in.ConsumeIntegralInRange(0, 5) != 0) partition = Bytes(in, 'P');
    if (in.ConsumeBool()) image = Bytes(in, 'I');
    if (in.ConsumeBool()) binary = Bytes(in, 'B');
    if (partition) fuzz_device::PutFile(kPartition, *partition);
    if (image) fuzz_device::PutFile(kLogoImage, *image);
    if (binary) fuzz_device::PutFile(kLogoBinary, *binary);
    const std::string copied = Pick(in, kDates), current = Pick(in, kDates);
    hostplatform::SetProperty(kCopiedDate, copied);
    hostplatform::SetProperty(kImageDate, current);
    const std::string trigger = Pick(in, kTriggers);

    const bool company = trigger == kTriggers[0] || trigger == kTriggers[1];
    std::optional<std::string> source;
    if (partition && company) {
        const bool done = trigger == kTriggers[0] && !copied.empty() && copied == current;
        if (!current.empty() && !done) source = image ? image : binary;
    } else if (partition && trigger == kTriggers[2]) {
        source = binary;  // the path after the first "/"
    }
    std::string expected_partition = partition.value_or("");
    std::string expected_date = copied;
    if (source && source->size() <= partition->size()) {
        expected_partition.replace(0, source->size(), *source);
        if (company) expected_date = current;
    }

    InitExtensionPropertyImpl impl;
    impl.loadSimSwitchOverrideProperties(trigger, [](int, PropertyMap) {});
    std::string now;
    android::base::ReadFileToString(kPartition, &now);
    if (now != expected_partition) fuzz_device::Fail("logo partition after " + trigger);
    if (fuzz_device::Property(kCopiedDate) != expected_date) {
        fuzz_device::Fail("copied date after " + trigger);
    }
}

// --- Slot 9: the keys it takes from the properties ---

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

void CheckSlot9(FuzzedDataProvider& in) {
    constexpr const char* kValues[] = {"", "k", "r", "ABC", "Def"};
    const char* const names[] = {"sys.sim.switch.first", "sys.sim.switch.current",
                                 "sys.region.switch.first", "persist.sys.zelva.operator.opta",
                                 "persist.sys.zelva.operator.optb"};
    std::map<std::string, std::string> props;
    for (const char* name : names) {
        props[name] = Pick(in, kValues);
        hostplatform::SetProperty(name, props[name]);
    }
    fuzz_device::PutFile("/my_carrier/properties/k/SimSwitchFirstTime/a.prop", "f=1\n");
    fuzz_device::PutFile("/my_carrier/etc/build.abc-def.prop", "s=1\n");
    InitExtensionPropertyImpl impl;
    impl.simSwitchFirstKey = Pick(in, kValues);
    impl.simSwitchCurrentKey = Pick(in, kValues);
    impl.regionSwitchKey = Pick(in, kValues);
    impl.ssvOldKey = Pick(in, kValues);
    // A set property replaces a key; the operator pair replaces the old SSV key, in lower case.
    const auto replaced = [&](const std::string& key, const char* name) {
        return props[name].empty() ? key : props[name];
    };
    const std::vector<std::string> expected = {
            replaced(impl.simSwitchFirstKey, names[0]), replaced(impl.simSwitchCurrentKey, names[1]),
            replaced(impl.regionSwitchKey, names[2]),
            props[names[3]].empty() || props[names[4]].empty()
                    ? impl.ssvOldKey
                    : Lower(props[names[3]]) + "-" + Lower(props[names[4]]),
    };
    impl.loadSimSwitchOverrideProperties([](int kind, PropertyMap batch) {
        if (kind != 0 || batch.empty()) fuzz_device::Fail("slot 9 batch");
    });
    const std::vector<std::string> keys = {impl.simSwitchFirstKey, impl.simSwitchCurrentKey,
                                           impl.regionSwitchKey, impl.ssvOldKey};
    if (keys != expected) fuzz_device::Fail("slot 9 keys");
}

// --- Exported helpers ---

void CheckHelpers(FuzzedDataProvider& in) {
    const std::string content = in.ConsumeRandomLengthString(64);
    fuzz_device::PutFile("/data/h", content);
    const int offset = in.ConsumeIntegralInRange(0, 80);
    const int length = in.ConsumeIntegralInRange(0, 1024);
    std::string expected = offset < static_cast<int>(content.size()) ? content.substr(offset) : "";
    expected.resize(std::min<size_t>(expected.size(), length));
    expected.resize(length, '\0');
    auto read = ReadFileWithOffset("/data/h", offset, length);
    if (!read.ok() || *read != expected) fuzz_device::Fail("ReadFileWithOffset");

    const std::string path = in.ConsumeRandomLengthString(12);
    std::string trimmed = StartsWith(path, "/") ? path : "/" + path;
    if (trimmed.back() == '/') trimmed.pop_back();
    if (trimPath(path) != trimmed) fuzz_device::Fail("trimPath " + path);
    std::string parent = StartsWith(path, "/") ? path : "/" + path;
    parent = parent.substr(0, parent.rfind('/') + 1);
    if (parent.size() > 1) parent.pop_back();
    if (getPathName(path) != parent) fuzz_device::Fail("getPathName " + path);

    // A file size limit makes the write fail part way, after the file was made.
    const std::string text = in.ConsumeRandomLengthString(64);
    const rlim_t limit = in.ConsumeIntegralInRange(0, 32);
    // SIGXFSZ ignored meanwhile: a write past the limit then fails with EFBIG.
    struct rlimit saved;
    getrlimit(RLIMIT_FSIZE, &saved);
    struct sigaction ignore = {}, handler;
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, &handler);
    struct rlimit small = {limit, saved.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const bool written = WriteStringToFile(text, "/data/w");
    setrlimit(RLIMIT_FSIZE, &saved);
    sigaction(SIGXFSZ, &handler, nullptr);
    std::string now;
    const bool exists = android::base::ReadFileToString("/data/w", &now);
    if (written != (text.size() <= limit)) fuzz_device::Fail("WriteStringToFile result");
    if (written ? now != text : exists) fuzz_device::Fail("WriteStringToFile left a file");
    unlink("/data/w");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    fuzz_device::Start(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    fuzz_input::RunChecks(in, {CheckKeySets, CheckPartitions, CheckLogo, CheckHelpers, CheckSlot9},
                          [] { fuzz_device::FreshInput(); });
    return 0;
}
