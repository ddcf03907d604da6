// Switch key resolution as boots see it: what one boot writes to the reserve
// and data stores is what the next boot reads.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

const std::string kSsv = "/mnt/vendor/zelvareserve/system/ssv/";
const std::string kFirst = kSsv + "sim_switch_first_file";
const std::string kConvert = kSsv + "sim_switch_convert_file";
const std::string kData = "/data/system/customize/sim_switch/";
const std::string kFirstLine = "sys.sim.switch.first=K1\n";
const std::string kConvertLine = "sys.sim.switch.convert= true\n";
const std::string kNvmap = "/my_product/etc/nvmap.prop";

// One boot of |root|: slot 6, then the first, current and region keys the object holds.
sandbox::Outcome Boot(const sandbox::ScratchRoot& root, const PropertyMap& props,
                      std::vector<sandbox::MountSetup> mounts = {}) {
    sandbox::Options options;
    options.properties = props;
    options.mounts = std::move(mounts);
    auto boot = [](sandbox::Context& ctx) {
        auto* o = Obj();
        o->loadPersistOverrideProperties(ctx.sink());
        ctx.Note("keys",
                 o->simSwitchFirstKey + "," + o->simSwitchCurrentKey + "," + o->regionSwitchKey);
    };
    return RunInDevice(root, boot, options);
}

std::string File(const sandbox::Outcome& outcome, const std::string& path) {
    return outcome.FileContent(path).value_or("-");
}

// An entry of the switch-key batch, the boot's first ("-": absent); no channel reset runs here.
std::string KeyBatch(const sandbox::Outcome& outcome, const std::string& name) {
    if (outcome.batches.empty() || !outcome.batches[0].props.count(name)) return "-";
    return outcome.batches[0].props.at(name);
}

// Whether each of |paths| belongs to system (1000:1000); true when not root (no lchown then).
bool SystemOwned(const sandbox::Outcome& outcome, const std::vector<std::string>& paths) {
    return geteuid() != 0 || std::all_of(paths.begin(), paths.end(), [&](const std::string& p) {
               auto it = outcome.tree.find(p);
               return it != outcome.tree.end() && it->second.uid == 1000 && it->second.gid == 1000;
           });
}

TEST(KeyResolutionTest, OldSchemeConvertedOnce) {
    auto root = Root(Tree({{kNvmap, "QC=K1\n"}}));
    ASSERT_TRUE(root);
    const PropertyMap device = Props("ro.boot.qvcarrier=QC,ro.none.clear.switch.first=true");
    sandbox::Outcome first = Boot(*root, device);
    ASSERT_DEVICE_RAN(first);
    const std::string none_clear = kSsv + "first_switch_none_clear";
    EXPECT_EQ(File(first, kFirst) + File(first, kConvert) + File(first, none_clear),
              kFirstLine + kConvertLine + "1");
    EXPECT_TRUE(SystemOwned(first, {kFirst, kConvert, none_clear}));
    EXPECT_TRUE(first.HasLog(android::base::INFO, "there is no ssv dir"));
    EXPECT_TRUE(first.HasLog(android::base::INFO, "create ssv dir: " + kSsv));
    EXPECT_EQ(KeyBatch(first, "sys.sim.switch.first") + first.notes["keys"], "K1K1,,");

    // The map changes: the next boot reads the stored key and converts nothing.
    ASSERT_TRUE(android::base::WriteStringToFile("QC=K2\n", root->HostPath(kNvmap)));
    sandbox::Outcome second = Boot(*root, NextBoot(device, first.properties));
    ASSERT_DEVICE_RAN(second);
    EXPECT_EQ(File(second, kFirst) + second.notes["keys"], kFirstLine + "K1,,");
    EXPECT_EQ(KeyBatch(second, "sys.sim.switch.convert"), "true");

    // Converted for good: a lost first file is not derived again.
    ASSERT_EQ(unlink(root->HostPath(kFirst).c_str()), 0);
    sandbox::Outcome third = Boot(*root, NextBoot(device, second.properties));
    ASSERT_DEVICE_RAN(third);
    EXPECT_EQ(File(third, kFirst) + third.notes["keys"], "-,,");
}

TEST(KeyResolutionTest, LegacyBareKeysRewrittenOnce) {
    const std::string current = kSsv + "sim_switch_current_file";
    const std::string region = kSsv + "region_switch_file";
    auto root = Root(Tree({{kFirst, "K7"}, {current, "C7"}, {region, "R7"}}));
    ASSERT_TRUE(root);
    sandbox::Outcome last;
    for (int boot = 0; boot < 2; ++boot) {
        sandbox::Outcome outcome = Boot(*root, NextBoot({}, last.properties));
        ASSERT_DEVICE_RAN(outcome);
        EXPECT_EQ(File(outcome, kFirst) + File(outcome, current) + File(outcome, region),
                  "sys.sim.switch.first=K7\nsys.sim.switch.current=C7\n"
                  "sys.region.switch.first=R7\n");
        EXPECT_EQ(outcome.notes["keys"], "K7,C7,R7");
        EXPECT_EQ(KeyBatch(outcome, "sys.sim.switch.first") +
                          KeyBatch(outcome, "sys.sim.switch.current") +
                          KeyBatch(outcome, "sys.region.switch.first"),
                  "K7C7R7");
        std::string converts;
        for (const std::string& m : outcome.Messages(android::base::ERROR)) {
            if (android::base::StartsWith(m, "Convert ")) converts += m + "|";
        }
        EXPECT_EQ(converts, boot ? "" : "Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY|"
                                        "Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY|"
                                        "Convert tmp_region_key to REGION_SWITCH_PROPERTY|");
        EXPECT_TRUE(boot || SystemOwned(outcome, {kFirst, current, region}));
        last = outcome;
    }
}

// A failed conversion write leaves no marker, so the next boot tries again.
TEST(KeyResolutionTest, FailedConversionRetriedNextBoot) {
    const PropertyMap device = Props("ro.boot.qvcarrier=QC");
    const std::string reserve = "/mnt/vendor/zelvareserve";
    for (const sandbox::MountSetup& mount :
         {sandbox::MountSetup{sandbox::MountSetup::Kind::kReadOnly, reserve},
          sandbox::MountSetup{sandbox::MountSetup::Kind::kTmpfs, reserve, 65536, true}}) {
        SCOPED_TRACE(mount.fill ? "full reserve" : "read-only reserve");
        auto root = Root(Tree({{kNvmap, "QC=K1\n"}, {kSsv, ""}}));
        ASSERT_TRUE(root);
        sandbox::Outcome failed = Boot(*root, device, {mount});
        ASSERT_DEVICE_RAN(failed);
        EXPECT_TRUE(failed.HasLogContaining("Unable to write sim_action_first_file "));
        // Nothing half-written either: a present first file would block the retry.
        EXPECT_EQ(File(failed, kConvert) + File(failed, kFirst) + failed.notes["keys"], "--,,");
        sandbox::Outcome retried = Boot(*root, NextBoot(device, failed.properties));
        ASSERT_DEVICE_RAN(retried);
        EXPECT_EQ(File(retried, kFirst) + File(retried, kConvert), kFirstLine + kConvertLine);
    }
}

TEST(KeyResolutionTest, SingleBootStates) {
    const std::string qc = "ro.boot.qvcarrier=QC", op = "sys.zelva.switch.operator";
    const std::string payjoy = "persist.sys.payjoy.status_change=";
    const std::string region = "sys.region.switch.first";
    const std::string data_region = kData + "region_switch_file";
    const std::string removal = "persist.sys.remove.region.apk=";
    const std::string flashback = "ro.sys.customize.flashback.company";
    const std::string flashback_cfg = "/mnt/vendor/zelvareserve/system/flag/flashback.cfg";
    // a file before (path=content), properties, a file after (path=content, "-": absent),
    // an entry of the key batch (name=value, "-": absent)
    const std::vector<std::array<std::string, 4>> cases = {
            {kConvert + "=" + kConvertLine, qc, kFirst + "=-", "sys.sim.switch.convert=true"},
            {kData + "sim_switch_first_file=sys.sim.switch.first=KD", qc, kConvert + "=-",
             "sys.sim.switch.first=KD"},
            {"", qc + ",ro.none.clear.switch.first=TRUE", kSsv + "first_switch_none_clear=-",
             "sys.sim.switch.first=K1"},
            {"", payjoy + "1", kSsv + "sim_action_file=" + op + "=payjoy\n", op + "=payjoy"},
            {"", payjoy + "2", kSsv + "sim_action_file=-", op + "=-"},
            {"", payjoy + "1," + op + "=x", kSsv + "sim_action_file=-", op + "=-"},
            {"", removal + "EU_X", data_region + "=" + region + "=EU_X\n", region + "=EU_X"},
            {"", removal + "false", data_region + "=-", region + "=-"},
            {kSsv + "region_switch_file=" + region + "=R1", removal + "EU_X", data_region + "=-",
             region + "=R1"},
            {"", "", "", flashback + "=invalid"},
            {"", flashback + "=acme", "", flashback + "=-"},
            {flashback_cfg + "=" + flashback + "=cfg", "", "", flashback + "=cfg"}};
    // "a=b=c" -> {"a", "b=c"}
    auto split = [](const std::string& s) {
        const size_t eq = s.find('=');
        return std::make_pair(s.substr(0, eq), s.substr(eq + 1));
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        auto tree = Tree({{kNvmap, "QC=K1\n"}, {kSsv, ""}, {kData, ""}});
        if (!c[0].empty()) tree.File(split(c[0]).first, split(c[0]).second);
        auto root = Root(tree);
        ASSERT_TRUE(root);
        sandbox::Outcome outcome = Boot(*root, Props(c[1]));
        ASSERT_DEVICE_RAN(outcome);
        if (!c[2].empty()) {
            EXPECT_EQ(File(outcome, split(c[2]).first), split(c[2]).second);
        }
        EXPECT_EQ(KeyBatch(outcome, split(c[3]).first), split(c[3]).second);
        const bool created = c[1] == removal + "EU_X" && c[0].empty();
        EXPECT_TRUE(!created || SystemOwned(outcome, {data_region}));
    }
}

// The region key that the removal property gave is kept in the data file.
TEST(KeyResolutionTest, RegionFromRemovalPropertyWrittenOnce) {
    auto root = Root(Tree({{kData, ""}}));
    ASSERT_TRUE(root);
    const PropertyMap device = Props("persist.sys.remove.region.apk=EU_X");
    sandbox::Outcome first = Boot(*root, device);
    ASSERT_DEVICE_RAN(first);
    EXPECT_EQ(File(first, kData + "region_switch_file"), "sys.region.switch.first=EU_X\n");
    ASSERT_TRUE(android::base::WriteStringToFile("sys.region.switch.first=EDITED\n",
                                                 root->HostPath(kData + "region_switch_file")));
    sandbox::Outcome second = Boot(*root, NextBoot(device, first.properties));
    ASSERT_DEVICE_RAN(second);
    EXPECT_EQ(File(second, kData + "region_switch_file") + second.notes["keys"],
              "sys.region.switch.first=EDITED\n,,EDITED");
}

}  // namespace
}  // namespace zelva_test
