// SPDX-License-Identifier: Apache-2.0
// The library as init sees it: only the contract header, the built shared
// object and its factory, every slot called through the interface pointer.

#include <dlfcn.h>

#include <gmock/gmock.h>

#include "IInitExtensionProperty.h"
#include "expectations.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using I = android::init::IInitExtensionProperty;
using namespace testing;

TEST(ObjectAbiTest, EverySlotReachesItsOperation) {
    // Loaded before the fork: the sandbox's root doesn't hold the build tree.
    void* library = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    auto fetch = reinterpret_cast<I* (*)(const char*)>(
            dlsym(library, "QRAV_FETCH_IInitExtensionProperty"));
    ASSERT_NE(fetch, nullptr) << dlerror();
    // Each slot that sends batches finds a property of its own to send.
    const PropertyMap props = {{"ro.sys.custommedia.sourcepath", "/my_media"},
                               {"sys.cotaimg.verify", "1"},
                               {"sys.sim.switch.first", "SF"},
                               {"sys.cota.load.properties", "/cota"}};
    sandbox::DeviceTree tree;
    tree.File("/odm/build.prop", "odm=1")
            .File("/one/build.prop", "one=1")
            .File("/cota/build.prop", "cota=1")
            .File("/my_company/etc/build.prop", "nightjar=1")
            .File("/my_product/properties/SF/SimSwitchFirstTime/a.prop", "simswitch=1")
            .File("/data/system/customize/cloud-config/data_cloud_prop_file.prop", "cloud=1");
    sandbox::Outcome outcome = RunInDevice(tree, {.properties = props}, [&](sandbox::Context& ctx) {
        I* obj = fetch("libzelvaextproperty.so");
        obj->setLibName("third");
        ctx.SetStep("slot 3");
        obj->bindCustomizeMediaPath("/data/media");
        PropertyMap all, one;
        obj->loadExtensionPartitionProperties(&all);
        obj->loadExtensionPartitionProperties("/one", &one);
        ctx.Note("slot 4", all.count("odm") && !all.count("one") ? "every listed directory" : "?");
        ctx.Note("slot 5", one.count("one") && !one.count("odm") ? "the one directory" : "?");
        ctx.SetStep("slot 6");
        ctx.Note("slot 6", std::to_string(obj->loadPersistOverrideProperties(ctx.sink())));
        ctx.SetStep("slot 7");
        obj->loadCotaOverrideProperties(ctx.sink());
        ctx.SetStep("slot 8");
        obj->loadNightjarOverrideProperties(ctx.sink());
        ctx.SetStep("slot 9");
        obj->loadSimSwitchOverrideProperties(ctx.sink());
        ctx.SetStep("slot 10");
        obj->loadSimSwitchOverrideProperties("propertiesOverrideSwitch", ctx.sink());
        int calls = 0;
        const int result = obj->loadOverrideProperty("a", "b", [&](int, PropertyMap) { ++calls; });
        ctx.Note("slot 11", std::to_string(result) + " with " + std::to_string(calls) + " batches");
        ctx.SetStep("slot 12");
        obj->loadCotaServiceOverrideProperties("no_such_command", ctx.sink());
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, (PropertyMap{{"slot 4", "every listed directory"},
                                          {"slot 5", "the one directory"},
                                          {"slot 6", "0"},
                                          {"slot 11", "0 with 0 batches"}}));
    // A batch among those of the slot that carries |name|=1.
    auto carrying = [](const char* name) {
        return Contains(Field(&SentBatch::props, Contains(Pair(name, "1"))));
    };
    EXPECT_THAT(SentBatches(outcome, "slot 6"), AllOf(carrying("cloud"), carrying("simswitch")));
    EXPECT_THAT(SentBatches(outcome, "slot 7"), carrying("cota"));
    EXPECT_THAT(SentBatches(outcome, "slot 8"), carrying("nightjar"));
    EXPECT_THAT(SentBatches(outcome, "slot 9"),
                AllOf(carrying("simswitch"), Not(carrying("cloud"))));
    EXPECT_THAT(SentBatches(outcome, "slot 10"), AllOf(carrying("simswitch"), carrying("cloud")));
    EXPECT_THAT(LogRecords(outcome, {.step = "slot 3"}),
                Contains(Info("Mount ringtones result :-1")));
    EXPECT_THAT(LogRecords(outcome, {.step = "slot 12"}),
                Contains(Error("not valid cota mount bind command:no_such_command")));
}

}  // namespace
}  // namespace zelva_test
