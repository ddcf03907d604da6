// The library as init sees it: only the contract header, the built shared
// object and its factory, every slot called through the interface pointer.

#include <dlfcn.h>

#include <algorithm>

#include "IInitExtensionProperty.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using Factory = android::init::IInitExtensionProperty* (*)(const char*);

TEST(ObjectAbiTest, EverySlotReachesItsOperation) {
    // Loaded before the fork: the sandbox's root doesn't hold the build tree.
    void* handle = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    auto fetch = reinterpret_cast<Factory>(dlsym(handle, "QRAV_FETCH_IInitExtensionProperty"));
    ASSERT_NE(fetch, nullptr) << dlerror();
    sandbox::Options options;
    options.properties = {{"ro.sys.custommedia.sourcepath", "/my_media"},
                          {"ro.zelva.image.my_company.date", "D1"}, {"sys.cotaimg.verify", "1"},
                          {"sys.cota.load.properties", "/cota"}, {"sys.sim.switch.first", "SF"}};
    sandbox::DeviceTree tree;
    tree.File("/my_media/ring.ogg", "").Dir("/data/media").File("/odm/build.prop", "odm=1")
            .File("/my_carrier/build.prop", "ro.zelva.image.my_carrier.type=full")
            .File("/one/build.prop", "one=1").File("/cota/build.prop", "cota=1")
            .File("/my_company/etc/build.prop", "nightjar=1")
            .File("/my_product/properties/SF/SimSwitchFirstTime/a.prop", "simswitch=1")
            .File("/data/system/customize/cloud-config/data_cloud_prop_file.prop", "cloud=1");
    sandbox::Outcome outcome = RunInDevice(tree, [fetch](sandbox::Context& ctx) {
        android::init::IInitExtensionProperty* obj = fetch("libzelvaextproperty.so");
        ctx.Note("same", fetch("second") == obj ? "yes" : "no");
        obj->setLibName("third");
        ctx.SetStep("3");
        obj->bindCustomizeMediaPath("/data/media");
        android::init::PropertyMap all, one;
        obj->loadExtensionPartitionProperties(&all);
        obj->loadExtensionPartitionProperties("/one", &one);
        ctx.Note("4", all["odm"] + all["ro.zelva.cust.ver"]);
        ctx.Note("5", std::to_string(one.size()) + one["one"]);
        ctx.SetStep("6");
        ctx.Note("6", std::to_string(obj->loadPersistOverrideProperties(ctx.sink())));
        ctx.SetStep("7");
        obj->loadCotaOverrideProperties(ctx.sink());
        ctx.SetStep("8");
        obj->loadNightjarOverrideProperties(ctx.sink());
        ctx.SetStep("9");
        obj->loadSimSwitchOverrideProperties(ctx.sink());
        ctx.SetStep("10");
        obj->loadSimSwitchOverrideProperties("propertiesOverrideSwitch", ctx.sink());
        ctx.SetStep("11");
        ctx.Note("11", std::to_string(obj->loadOverrideProperty("a", "b", ctx.sink())));
        ctx.SetStep("12");
        obj->loadCotaServiceOverrideProperties("no_such_command", ctx.sink());
    }, options);
    ASSERT_DEVICE_RAN(outcome);
    // Which of |names| the batches and log messages of |step| hold.
    auto seen = [&](const std::string& step, std::vector<std::string> names) {
        std::string found;
        for (const std::string& name : names) {
            for (const sandbox::Batch& b : outcome.batches) {
                if (b.step == step && b.props.count(name)) found += name + " ";
            }
            for (const sandbox::LogRecord& r : outcome.logs) {
                if (r.step == step && r.message == name) found += name + " ";
            }
        }
        return found;
    };
    const std::map<std::string, std::string> notes = {
            {"same", "yes"}, {"4", "11"}, {"5", "11"}, {"6", "0"}, {"11", "0"}};
    EXPECT_EQ(outcome.notes, notes);
    EXPECT_EQ(seen("3", {"Mount ringtones result :0"}), "Mount ringtones result :0 ");
    EXPECT_EQ(outcome.properties["sys.mount.mediapath.success"], "0");
    EXPECT_TRUE(outcome.Exists("/data/media/ring.ogg"));
    const std::string backup = "persist.sys.zelva.company.ota.version.backup";
    EXPECT_EQ(seen("6", {backup}), backup + " ");
    EXPECT_EQ(seen("7", {"cota", "cloud"}), "cota ");
    EXPECT_EQ(seen("8", {"nightjar", "cloud"}), "nightjar ");
    EXPECT_EQ(seen("9", {"simswitch", "cloud"}), "simswitch ");  // not the priority loader
    EXPECT_EQ(seen("10", {"cloud"}), "cloud ");
    EXPECT_TRUE(std::none_of(outcome.batches.begin(), outcome.batches.end(),
                             [](const sandbox::Batch& b) { return b.step == "11"; }));
    const std::string invalid = "not valid cota mount bind command:no_such_command";
    EXPECT_EQ(seen("12", {invalid}), invalid + " ");
}

}  // namespace
}  // namespace zelva_test
