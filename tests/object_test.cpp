// SPDX-License-Identifier: Apache-2.0
// The library as init sees it: only the contract header, the built shared
// object and its factory, every slot called through the interface pointer.

#include <dlfcn.h>

#include "IInitExtensionProperty.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using I = android::init::IInitExtensionProperty;

TEST(ObjectAbiTest, EverySlotReachesItsOperation) {
    // Loaded before the fork: the sandbox's root doesn't hold the build tree.
    void* library = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    auto fetch = reinterpret_cast<I* (*)(const char*)>(
            dlsym(library, "QRAV_FETCH_IInitExtensionProperty"));
    ASSERT_NE(fetch, nullptr) << dlerror();
    // Each slot that sends batches finds a property of its own to send.
    const PropertyMap props = {
            {"ro.sys.custommedia.sourcepath", "/my_media"}, {"sys.cotaimg.verify", "1"},
            {"sys.sim.switch.first", "SF"}, {"sys.cota.load.properties", "/cota"}};
    sandbox::DeviceTree tree;
    tree.File("/odm/build.prop", "odm=1").File("/one/build.prop", "one=1")
            .File("/cota/build.prop", "cota=1").File("/my_company/etc/build.prop", "nightjar=1")
            .File("/my_product/properties/SF/SimSwitchFirstTime/a.prop", "simswitch=1")
            .File("/data/system/customize/cloud-config/data_cloud_prop_file.prop", "cloud=1");
    sandbox::Outcome outcome = RunInDevice(tree, [&](sandbox::Context& ctx) {
        I* obj = fetch("libzelvaextproperty.so");
        obj->setLibName("third");
        obj->bindCustomizeMediaPath("/data/media");
        PropertyMap all, one;
        obj->loadExtensionPartitionProperties(&all);
        obj->loadExtensionPartitionProperties("/one", &one);
        ctx.Note("4 5", all["odm"] + all["one"] + "|" + one["odm"] + one["one"]);
        ctx.Note("6", std::to_string(obj->loadPersistOverrideProperties(ctx.sink())));
        obj->loadCotaOverrideProperties(ctx.sink());
        obj->loadNightjarOverrideProperties(ctx.sink());
        obj->loadSimSwitchOverrideProperties(ctx.sink());
        obj->loadSimSwitchOverrideProperties("propertiesOverrideSwitch", ctx.sink());
        int calls = 0;
        const int result = obj->loadOverrideProperty("a", "b", [&](int, PropertyMap) { ++calls; });
        ctx.Note("11", std::to_string(result) + " " + std::to_string(calls));
        obj->loadCotaServiceOverrideProperties("no_such_command", ctx.sink());
    }, {props, {}});
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, (PropertyMap{{"4 5", "1|1"}, {"6", "0"}, {"11", "0 0"}}));
    std::string sent;  // what the batches hold of interest, in the order sent: slots 6 to 10
    for (const sandbox::Batch& b : outcome.batches)
        for (const std::string name : {"simswitch", "cloud", "cota", "nightjar"})
            if (b.props.count(name)) sent += name + " ";
    EXPECT_EQ(sent, "simswitch cloud cota nightjar simswitch simswitch cloud ");
    EXPECT_TRUE(outcome.HasLog(android::base::INFO, "Mount ringtones result :-1"));  // slot 3
    EXPECT_TRUE(outcome.HasLog(android::base::ERROR,
                               "not valid cota mount bind command:no_such_command"));  // slot 12
}

}  // namespace
}  // namespace zelva_test
