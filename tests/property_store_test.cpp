// SPDX-License-Identifier: Apache-2.0
// The one property store behind cutils' property_get/property_set and libbase's property
// functions: in this process, in the library's own code, and in the built library as a host
// loads it.

#include <dlfcn.h>

#include <thread>

#include <android-base/properties.h>
#include <cutils/properties.h>
#include <gmock/gmock.h>

#include "IInitExtensionProperty.h"
#include "test_support.h"
#include "utils.h"

namespace zelva_test {

using namespace android::base;

static std::string CutilsGet(const char* name, const char* default_value = "default") {
    char value[PROPERTY_VALUE_MAX];
    return property_get(name, value, default_value) >= 0 ? value : "(failed)";
}

TEST(PropertyStoreTest, ValueSetThroughEitherApiIsSeenThroughTheOtherAndByTheLibrary) {
    ASSERT_EQ(property_set("test.zelva.cutils", "set by cutils"), 0);
    ASSERT_TRUE(SetProperty("test.zelva.libbase", "set by libbase"));
    EXPECT_EQ(GetProperty("test.zelva.cutils", ""), "set by cutils");
    EXPECT_EQ(CutilsGet("test.zelva.libbase"), "set by libbase");
    EXPECT_EQ(ExpandProps("${test.zelva.cutils}").value_or("(failed)"), "set by cutils");
}

TEST(PropertyStoreTest, EmptyValueClearsAndReadsThenGiveTheirDefault) {
    ASSERT_TRUE(SetProperty("test.zelva.cleared", "v"));
    EXPECT_EQ(property_set("test.zelva.cleared", ""), 0);
    EXPECT_EQ(CutilsGet("test.zelva.cleared"), "default");
    EXPECT_EQ(CutilsGet("test.zelva.cleared", nullptr), "");
    EXPECT_EQ(GetProperty("test.zelva.cleared", "unset"), "unset");
}

TEST(PropertyStoreTest, ValueOf92BytesOrMoreIsRefusedOutsideRo) {
    const std::string v91(91, 'a'), v92(92, 'b');
    EXPECT_EQ(property_set("test.zelva.long", v91.c_str()), 0);
    EXPECT_EQ(property_set("test.zelva.long", v92.c_str()), -1);
    EXPECT_FALSE(SetProperty("test.zelva.long", v92));
    EXPECT_EQ(CutilsGet("test.zelva.long"), v91);
}

// In the device: an "ro." name set here would outlive the test on a real one.
TEST(PropertyStoreTest, RoValueOfAnyLengthIsKeptButCutilsReadsAtMost91Bytes) {
    const std::string v300(300, 'a');
    sandbox::Outcome outcome = RunInDevice(sandbox::DeviceTree(), [&](sandbox::Context& ctx) {
        // Only "ro." exempts: "roz" is limited.
        ctx.Note("roz", SetProperty("roz", std::string(92, 'b')) ? "set" : "refused");
        ctx.Note("ro.z", SetProperty("ro.z", v300) ? GetProperty("ro.z", "") : "refused");
        std::string buffer(PROPERTY_VALUE_MAX + 1, 'z');  // one byte more than cutils may fill
        ctx.Note("length", std::to_string(property_get("ro.z", buffer.data(), "")));
        ctx.Note("buffer", buffer);
        ctx.Note("default", CutilsGet("ro.unset", v300.c_str()));
    });
    ASSERT_DEVICE_RAN(outcome);
    const std::string v91(91, 'a');
    EXPECT_EQ(outcome.notes, (PropertyMap{{"roz", "refused"},
                                          {"ro.z", v300},
                                          {"length", "91"},
                                          {"buffer", v91 + '\0' + 'z'},
                                          {"default", v91}}));
}

TEST(PropertyStoreTest, TypedReadsParseTheValueOrGiveTheDefault) {
    struct Row {
        std::string value;
        int64_t as_int;  // in [-5, 5], default 0
        bool as_bool_default_false;
        bool as_bool_default_true;
    };
    for (const Row& row : std::vector<Row>{{"5", 5, false, true},
                                           {"-7", 0, false, true},
                                           {"x", 0, false, true},
                                           {"n", 0, false, false},
                                           {"y", 0, true, true}}) {
        ASSERT_EQ(property_set("test.zelva.typed", row.value.c_str()), 0);
        EXPECT_EQ(GetIntProperty<int64_t>("test.zelva.typed", 0, -5, 5), row.as_int) << row.value;
        EXPECT_EQ(GetBoolProperty("test.zelva.typed", false), row.as_bool_default_false)
                << row.value;
        EXPECT_EQ(GetBoolProperty("test.zelva.typed", true), row.as_bool_default_true) << row.value;
    }
}

// The function |name| as the loaded library |lib| and its dependencies resolve it; null if the
// library didn't load (dlsym() would search this process instead).
#define LIBRARY_FUNCTION(lib, name) reinterpret_cast<decltype(&name)>(lib ? dlsym(lib, #name) : 0)

// The built library as init loads it: property_set/property_get resolve through its handle
// (they live in its dependency libhostplatform.so), and its own code shares their store: slot 3
// reads the media source and records the failed mount ("-1") of the absent source.
static void UseTheBuiltLibrary() {
    void* lib = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    char media[PROPERTY_VALUE_MAX];
    LIBRARY_FUNCTION(lib, property_set)("ro.sys.custommedia.sourcepath", "/my_zelva_absent");
    LIBRARY_FUNCTION(lib, QRAV_FETCH_IInitExtensionProperty)
    ("libzelvaextproperty.so")->bindCustomizeMediaPath("/my_zelva_absent_target");
    LIBRARY_FUNCTION(lib, property_get)("sys.mount.mediapath.success", media, "unset");
    _exit(media != std::string("-1"));
}

TEST(PropertyStoreTest, BuiltLibraryAndItsPlatformLibraryShareOneStore) {
    EXPECT_EXIT(UseTheBuiltLibrary(), testing::ExitedWithCode(0), "");  // a child stays clean
}

// One thread sets through both APIs while this one reads through both and through the
// library's own code (for ThreadSanitizer).
TEST(PropertyStoreThreadTest, ConcurrentSetsAndReadsSeeWholeValues) {
    std::thread writer([] {
        for (int i = 0; i < 1500; ++i) {
            SetProperty("test.zelva.race", i % 2 == 0 ? "one" : "");
            property_set("test.zelva.race", "two-two");
        }
    });
    for (int i = 0; i < 3000; ++i) {
        EXPECT_THAT(GetProperty("test.zelva.race", "u") + CutilsGet("test.zelva.race", "u") +
                            ExpandProps("${test.zelva.race:-u}").value_or("?"),
                    testing::MatchesRegex("(one|two-two|u){3}"));
    }
    writer.join();
    EXPECT_EQ(CutilsGet("test.zelva.race"), "two-two");
}

}  // namespace zelva_test
