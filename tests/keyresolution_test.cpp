// SPDX-License-Identifier: Apache-2.0
// Switch key resolution as boots see it: what one boot writes to the reserve
// and data stores is what the next boot reads.

#include <sys/stat.h>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

const std::string kSsv = "/mnt/vendor/zelvareserve/system/ssv/";
const std::string kData = "/data/system/customize/sim_switch/";
const std::string kFirst = kSsv + "sim_switch_first_file", kK1 = "sys.sim.switch.first=K1";
const std::string kConvert = kSsv + "sim_switch_convert_file", kQc = "ro.boot.qvcarrier=QC";
const std::string kCfg = "/mnt/vendor/zelvareserve/system/flag/flashback.cfg";
const std::string kSys = geteuid() == 0 ? " sys" : "";  // a file that root gave to system

// Slot 6 of a new object, which holds no keys, as on a boot; returns the content of each of
// |files| ("-": missing; " sys" when system owns it), then the first, current and region keys
// that the object holds.
std::string Boot(sandbox::Context& ctx, const std::string& files) {
    android::init::InitExtensionPropertyImpl o;
    o.loadPersistOverrideProperties(ctx.sink());
    std::string seen;
    for (const std::string& path : android::base::Split(files, ",")) {
        struct stat st = {};
        std::string content = "-";
        if (lstat(path.c_str(), &st) == 0) android::base::ReadFileToString(path, &content);
        seen += content + (st.st_uid == 1000 && st.st_gid == 1000 ? " sys" : "") + "|";
    }
    return seen + o.simSwitchFirstKey + "," + o.simSwitchCurrentKey + "," + o.regionSwitchKey;
}

// What the boot of |step| returned and sent, and the messages of conversions and of the
// reserve directory.
std::string Shown(const sandbox::Outcome& o, const std::string& step) {
    std::string seen = Seen(o, step);
    for (const sandbox::LogRecord& r : o.logs)
        for (const char* start : {"Convert", "there is no ssv", "create ssv"})
            if (r.step == step && android::base::StartsWith(r.message, start))
                seen += "|" + r.message;
    return seen;
}

// One boot after the other in one device, each with its properties and, first, its edits of
// the files ("path=content,...", as Put).
TEST(KeyResolutionTest, KeysAcrossBoots) {
    const std::string none = kSsv + "first_switch_none_clear", ssv = kSsv + "sim_action_file";
    const std::string cur = kSsv + "sim_switch_current_file", region = kSsv + "region_switch_file";
    const std::string first = kFirst + "," + kConvert + "," + none, c = "sys.sim.switch.convert=";
    const std::string legacy = kFirst + "," + cur + "," + region, k = "sys.region.switch.first=";
    const std::string data = kData + "region_switch_file", op = "sys.zelva.switch.operator=payjoy";
    const std::string pay = "persist.sys.payjoy.status_change=", clr = "ro.none.clear.switch.first";
    const std::string removal = "persist.sys.remove.region.apk=";
    const std::string fb = "ro.sys.customize.flashback.company=";
    const std::string marks = c + " true\n" + kSys + "|1" + kSys + "|";  // both, as written
    const std::string keys7 = "sys.sim.switch.first=K7\n" + kSys + "|sys.sim.switch.current=C7\n" +
                              kSys + "|" + k + "R7\n" + kSys + "|K7,C7,R7[0 " + k + "R7 " + c +
                              "true sys.sim.switch.current=C7 sys.sim.switch.first=K7]";
    // Properties, edits, the files shown, then what the boot returned, sent and said.
    const Table boots = {
            // The old scheme is converted once, through the map, with the reserve directory
            // made: the first key and both markers written, and the key read back.
            {kQc + "," + clr + "=true", "", first, kK1 + "\n" + kSys + "|" + marks + "K1,,[0 " +
                     clr + "=true " + kK1 + "]|there is no ssv dir|create ssv dir: " + kSsv},
            // Converted for good: a lost first file is not derived again.
            {kQc + "," + clr + "=true", kFirst + "=-", first,
             "-|" + marks + ",,[0 " + clr + "=true " + c + "true]"},
            // A data copy of the first key blocks the conversion too.
            {kQc, kConvert + "=-," + kData + "sim_switch_first_file=" + kK1 + "D", kConvert,
             "-|K1D,,[0 " + kK1 + "D]"},
            // Converted again without it, but the none-clear marker needs exactly "true".
            {kQc + "," + clr + "=TRUE", kData + "sim_switch_first_file=-," + none + "=-", none,
             "-|K1,,[0 " + clr + "=TRUE " + kK1 + "]"},
            // Bare keys are rewritten once into name=value.
            {"", kFirst + "=K7," + cur + "=C7," + region + "=R7", legacy, keys7 +
             "|Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY|Convert tmp_current_key to "
             "SIM_SWITCH_CURRENT_PROPERTY|Convert tmp_region_key to REGION_SWITCH_PROPERTY"},
            {"", "", legacy, keys7},
            // The payjoy status writes the SSV store, only as "1" and without an operator.
            {pay + "1", kFirst + "=-," + cur + "=-," + region + "=-," + kConvert + "=-", ssv,
             op + "\n|,,[0 " + op + "]"},
            {pay + "2", ssv + "=-", ssv, "-|,,"},
            {pay + "1,sys.zelva.switch.operator=x", "", ssv, "-|,,"},
            // Without a region file the removal property names the key, kept in the data file.
            {removal + "EU_X", "", data, k + "EU_X\n" + kSys + "|,,EU_X[0 " + k + "EU_X]"},
            {removal + "EU_X", data + "=" + k + "ED", data, k + "ED|,,ED[0 " + k + "ED]"},
            {removal + "false", data + "=-", data, "-|,,"},
            {removal + "EU_X", region + "=" + k + "R1", data, "-|,,R1[0 " + k + "R1]"},
            // Flashback: "invalid" without flashback.cfg and without the property.
            {"", region + "=-," + kCfg + "=-", kCfg, "-|,,[0 " + fb + "invalid]"},
            {fb + "acme", "", kCfg, "-|,,"},
            {"", kCfg + "=" + fb + "cfg", kCfg, fb + "cfg|,,[0 " + fb + "cfg]"}};
    sandbox::Outcome outcome = RunCases(
            sandbox::DeviceTree().File("/my_product/etc/nvmap.prop", "QC=K1\n").Dir(kData)
                    .File(kCfg, ""),
            boots, [&](sandbox::Context& ctx, size_t i) {
                for (const auto& [path, content] : Props(boots[i][1])) Put(path, content);
                return Boot(ctx, boots[i][2]);
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < boots.size(); ++i)
        EXPECT_EQ(Shown(outcome, std::to_string(i)), boots[i][3]) << i;
}

// A failed conversion write, on a read-only or a full reserve, leaves nothing behind, so the
// next boot tries again. (What it logs is checked with the faults.)
TEST(KeyResolutionTest, FailedConversionRetriedNextBoot) {
    for (const bool full : {false, true}) {
        std::string error;
        auto root = sandbox::ScratchRoot::Create(
                sandbox::DeviceTree().File("/my_product/etc/nvmap.prop", "QC=K1").Dir(kSsv)
                        .File(kCfg, ""), &error);
        ASSERT_TRUE(root) << error;
        auto boot = [](sandbox::Context& ctx) { ctx.Note("", Boot(ctx, kFirst + "," + kConvert)); };
        const sandbox::MountSetup reserve = {full ? sandbox::MountSetup::Kind::kTmpfs
                                                  : sandbox::MountSetup::Kind::kReadOnly,
                                             "/mnt/vendor/zelvareserve", 65536, full};
        sandbox::Outcome o = RunInDevice(*root, boot, {Props(kQc), {reserve}});
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(Shown(o, ""), "-|-|,,");
        o = RunInDevice(*root, boot, {Props(kQc), {}});
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(Shown(o, ""), kK1 + "\n" + kSys + "|sys.sim.switch.convert= true\n" + kSys +
                                        "|K1,,[0 " + kK1 + "]");
    }
}

}  // namespace
}  // namespace zelva_test
