// SPDX-License-Identifier: Apache-2.0
// The persist override pipeline (slot 6) and its priority loader.

#include <gmock/gmock.h>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::base::ERROR;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCloud = "/data/system/customize/cloud-config/data_cloud_prop_file.prop";

// The override sources, the one that wins first; each sets p, and those that are single files
// log their absence.
struct Source {
    std::string path;
    std::string absent_error;  // empty for a key's property set, whose absence is normal
};
const std::vector<Source> kSources = {
        {"/odm/properties/F/SimSwitchFirstTime/f.prop", ""},
        {"/my_region/properties/CU/SimSwitchCurrentTime/c.prop", ""},
        {"/my_company/build.prop", "load cota prop file failed:"},
        {"/my_carrier/build.prop", "load cota prop file failed:"},
        {"/my_stock/properties/C/switchCarrierChannel/c.prop", ""},
        {"/my_product/properties/R/regionSwitch/r.prop", ""},
        {"/mnt/vendor/my_product/properties/R/regionSwitch/r.prop", ""},
        {"/data/system/customize/data_common_prop_file.prop", "load data common prop failed:"},
        {"/data/system/customize/empty_appchannel_prop_file.prop",
         "load empty appchannel prop file failed:"},
        {kCloud, "load rsa cloud prop failed:"}};

// Properties naming the key of every set among the sources.
const PropertyMap kKeysOfEverySet = {{"sys.region.switch.first", "R"},
                                     {"persist.sys.channel.info", "C"},
                                     {"sys.sim.switch.current", "CU"},
                                     {"sys.sim.switch.first", "F"}};

TEST(PriorityLoaderTest, EachSourceOverridesEverySourceBelowIt) {
    sandbox::DeviceTree tree;
    for (size_t i = 0; i < kSources.size(); ++i)
        tree.File(kSources[i].path, "p=" + std::to_string(i));
    // Removing the winner after each load lets the next source win the next load.
    const sandbox::Options options = {.properties = kKeysOfEverySet, .apply_batches = false};
    sandbox::Outcome outcome = RunInDevice(tree, options, [](sandbox::Context& ctx) {
        for (size_t i = 0; i < kSources.size(); ++i) {
            ctx.SetStep(std::to_string(i));
            Obj()->loadOverridePropertiesByPriority(ctx.sink());
            unlink(kSources[i].path.c_str());
        }
    });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < kSources.size(); ++i) {
        EXPECT_THAT(SentBatches(outcome, std::to_string(i)),
                    ElementsAre(Ordinary({{"p", std::to_string(i)}})))
                << kSources[i].path << " wins";
    }
}

TEST(PriorityLoaderTest, AbsentFilesAreErrorsAbsentSetsAreNotAndNothingIsSent) {
    sandbox::Outcome outcome = RunInDevice(
            sandbox::DeviceTree(), {.properties = kKeysOfEverySet},
            [](sandbox::Context& ctx) { Obj()->loadOverridePropertiesByPriority(ctx.sink()); });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), IsEmpty());
    std::vector<LogRecord> errors;  // in the order the files load
    for (auto it = kSources.rbegin(); it != kSources.rend(); ++it) {
        if (!it->absent_error.empty()) errors.push_back(Error(it->absent_error + it->path));
    }
    EXPECT_EQ(LogRecords(outcome, {.min_severity = ERROR}), errors);
}

TEST(PriorityLoaderTest, AKeyChangesOnlyWhenItsPropertyIsSet) {
    sandbox::Outcome outcome = RunInDevice(
            sandbox::DeviceTree(), {.properties = kKeysOfEverySet}, [](sandbox::Context& ctx) {
                auto* o = Obj();
                o->loadOverridePropertiesByPriority(ctx.sink());
                hostplatform::ResetProperties();
                hostplatform::SetProperty("sys.sim.switch.first", "F2");
                o->loadOverridePropertiesByPriority(ctx.sink());
                ctx.Note("region", o->regionSwitchKey);
                ctx.Note("channel", o->switchCarrierChannelKey);
                ctx.Note("current", o->simSwitchCurrentKey);
                ctx.Note("first", o->simSwitchFirstKey);
            });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes,
              (PropertyMap{{"region", "R"}, {"channel", "C"}, {"current", "CU"}, {"first", "F2"}}));
}

const std::string kDate = "ro.zelva.image.my_company.date";
const std::string kBackup = "persist.sys.zelva.company.ota.version.backup";
const std::string kOperatorA = "persist.sys.zelva.operator.opta";
const std::string kOperatorB = "persist.sys.zelva.operator.optb";
const SentBatch kFlashbackInvalid = Ordinary({{"ro.sys.customize.flashback.company", "invalid"}});

// Keys that an earlier call of this boot resolved.
struct ResolvedKeys {
    std::string first = "x";  // the SIM-switch first key
    std::string ssv;
    std::string region;
};

// A device whose company partition holds |company_build_prop|, with a cloud override file, a
// region set in the company partition, and a device name for its 256 GB storage.
sandbox::DeviceTree DeviceWithCompany(const std::string& company_build_prop) {
    return sandbox::DeviceTree()
            .File("/my_company/build.prop", company_build_prop)
            .File(kCloud, "cloud=1")
            .File("/my_company/properties/R/regionSwitch/r.prop", "persist.r=1")
            .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n")
            .File("/my_product/cust/EU/etc/devicename.cfg", "ROM=256\nmarket=M\ntype=T\nmodel=X")
            .File("/sys/block/sda/size", std::to_string(256LL << 21) + "\n");
}

// Runs slot 6 on |tree| with |properties|, the object holding |keys| (none when nullopt); its
// result is the note "result", the SSV key after it the note "ssv".
sandbox::Outcome RunPersistOverride(const sandbox::DeviceTree& tree, const PropertyMap& properties,
                                    std::optional<ResolvedKeys> keys) {
    return RunInDevice(tree, {.properties = properties}, [&](sandbox::Context& ctx) {
        auto* o = Obj();
        if (keys) {
            o->nvOldFlag = o->nvOldKey = o->simSwitchCurrentKey = "x";
            o->simSwitchFirstKey = keys->first;
            o->ssvOldKey = keys->ssv;
            o->regionSwitchKey = keys->region;
        }
        ctx.Note("result", std::to_string(o->loadPersistOverrideProperties(ctx.sink())));
        ctx.Note("ssv", o->ssvOldKey);
    });
}

TEST(PersistOverrideTest, FirstCallOfBootSendsEveryBatchInOrder) {
    const PropertyMap properties = {{"persist.sys.911.shutdown", "1"},
                                    {"ro.zelva.internet.whether.force.connect", "1"},
                                    {"ro.vendor.zelva.version_suffix", "T"},
                                    {"ro.build.display.id", "Q_1"},
                                    {"dev.mnt.blk.userdata", "sda"},
                                    {kDate, "D1"}};
    sandbox::Outcome outcome = RunPersistOverride(
            DeviceWithCompany("persist.company=1\nro.company=1\n"), properties, std::nullopt);
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes.at("result"), "0");
    EXPECT_THAT(
            SentBatches(outcome),
            ElementsAre(Restore({{"persist.sys.recopy.preload.opinstalled", "none"}}),
                        kFlashbackInvalid,  // the switch keys
                        Ordinary({{"cloud", "1"}, {"persist.company", "1"}, {"ro.company", "1"}}),
                        Company({{"persist.company", "1"}}), Restore({{kBackup, "D1"}}),
                        Ordinary({{"ro.vendor.zelva.exp.version", "QT_1"}}),
                        Ordinary({{"ro.zelva.internet.force.connect", "1"}}),
                        Ordinary({{"ro.product.littletail_model", "X"},
                                  {"ro.product.littletail_type", "T"},
                                  {"ro.vendor.zelva.market.name", "M"}})));
}

TEST(PersistOverrideTest, LaterCallSkipsKeysAndSourcesButHandsOverCompanyAndSpecials) {
    const PropertyMap properties = {
            {kDate, "D1"}, {"ro.vendor.zelva.version_suffix", "T"}, {"ro.build.display.id", "A_B"}};
    sandbox::Outcome outcome = RunPersistOverride(DeviceWithCompany("ro.only=1"), properties,
                                                  ResolvedKeys{.ssv = "s"});
    ASSERT_DEVICE_RAN(outcome);
    // A company image of "ro." names only: no company batch, but its date is kept.
    EXPECT_THAT(SentBatches(outcome),
                ElementsAre(Restore({{kBackup, "D1"}}),
                            Ordinary({{"ro.vendor.zelva.exp.version", "AT_B"}})));
    EXPECT_EQ(outcome.notes, (PropertyMap{{"result", "0"}, {"ssv", "s"}}));
}

TEST(PersistOverrideTest, OperatorPairGivesLowerCaseSsvKeyOnlyWhenThereIsNone) {
    const SentBatch sources = Ordinary({{"cloud", "1"}, {"ro.only", "1"}});
    const PropertyMap both = {{kOperatorA, "MCC"}, {kOperatorB, "Open"}};
    struct Row {
        std::string name;
        PropertyMap operators;
        ResolvedKeys keys;
        std::string ssv_after;
        std::vector<SentBatch> sent;
    };
    const std::vector<Row> rows = {
            {"both operators", both, {}, "mcc-open", {sources}},
            {"only operator A", {{kOperatorA, "MCC"}}, {}, "", {}},
            {"only operator B", {{kOperatorB, "Open"}}, {}, "", {}},
            {"SSV key already there", both, {.ssv = "keep"}, "keep", {}},
            // Without a first key the switch keys are resolved first.
            {"no first key", both, {.first = ""}, "mcc-open", {kFlashbackInvalid, sources}}};
    for (const Row& row : rows) {
        sandbox::Outcome outcome =
                RunPersistOverride(DeviceWithCompany("ro.only=1"), row.operators, row.keys);
        ASSERT_DEVICE_RAN(outcome);
        EXPECT_EQ(outcome.notes.at("ssv"), row.ssv_after) << row.name;
        EXPECT_EQ(SentBatches(outcome), row.sent) << row.name;
    }
}

TEST(PersistOverrideTest, NewCompanyImageHandsOverItsNonRoPropertiesAndRegionSetThenItsDate) {
    const std::string company = "ro.a=1\npersist.b=2\nsys.c=3\nRO.d=4\nrom.e=5\n";
    sandbox::Outcome outcome =
            RunPersistOverride(DeviceWithCompany(company), {{kDate, "D2"}, {kBackup, "D1"}},
                               ResolvedKeys{.region = "R"});
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), ElementsAre(Company({{"RO.d", "4"},
                                                           {"persist.b", "2"},
                                                           {"persist.r", "1"},
                                                           {"rom.e", "5"},
                                                           {"sys.c", "3"}}),
                                                  Restore({{kBackup, "D2"}})));
}

TEST(PersistOverrideTest, AbsentCompanyDateDiffersFromAKeptOneAndIsKeptEmpty) {
    sandbox::Outcome outcome = RunPersistOverride(DeviceWithCompany("persist.b=2\n"),
                                                  {{kBackup, "OLD"}}, ResolvedKeys{});
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome),
                ElementsAre(Company({{"persist.b", "2"}}), Restore({{kBackup, ""}})));
}

TEST(PersistOverrideTest, KeptCompanyDateHandsNothingOver) {
    sandbox::Outcome outcome =
            RunPersistOverride(DeviceWithCompany("persist.b=2\n"), {{kDate, "D3"}, {kBackup, "D3"}},
                               ResolvedKeys{.region = "R"});
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), IsEmpty());
}

}  // namespace
}  // namespace zelva_test
