// The one property store behind cutils' property_get/property_set and libbase's property
// functions: in this process, in the library's own code, and in the built library as a host
// loads it.

#include <dlfcn.h>

#include <thread>

#include <android-base/properties.h>
#include <cutils/properties.h>

#include "IInitExtensionProperty.h"
#include "test_support.h"
#include "utils.h"

namespace zelva_test {
namespace {

std::string CutilsGet(const char* name, const char* default_value = "dflt") {
    char value[PROPERTY_VALUE_MAX];
    property_get(name, value, default_value);
    return value;
}

TEST(PropertyStoreTest, BothApisShareOneStoreAndEmptyClears) {
    ASSERT_EQ(property_set("zelva.store.a", "from-cutils"), 0);
    EXPECT_EQ(ExpandProps("${zelva.store.a}").value_or("?"), "from-cutils");  // library code
    ASSERT_TRUE(android::base::SetProperty("zelva.store.b", "from-base"));
    EXPECT_EQ(CutilsGet("zelva.store.b"), "from-base");
    ASSERT_EQ(property_set("zelva.store.b", ""), 0);
    EXPECT_EQ(CutilsGet("zelva.store.b"), "dflt");
    EXPECT_EQ(CutilsGet("zelva.store.b", nullptr), "");
    EXPECT_EQ(android::base::GetProperty("zelva.store.b", "gone"), "gone");
    property_set("zelva.store.a", "");
}

TEST(PropertyStoreTest, ValueLimits) {
    const std::string v91(91, 'a'), v92(92, 'b'), long_ro(300, 'c');
    ASSERT_EQ(property_set("zelva.lim", v91.c_str()), 0);
    EXPECT_EQ(property_set("zelva.lim", v92.c_str()), -1);
    EXPECT_FALSE(android::base::SetProperty("zelva.lim", v92));
    EXPECT_EQ(CutilsGet("zelva.lim"), v91);  // refused sets change nothing
    ASSERT_TRUE(android::base::SetProperty("ro.zelva.lim", long_ro));
    EXPECT_EQ(android::base::GetProperty("ro.zelva.lim", ""), long_ro);
    char value[PROPERTY_VALUE_MAX + 4];
    memset(value, 'z', sizeof(value));
    EXPECT_EQ(property_get("ro.zelva.lim", value, ""), 91);
    EXPECT_EQ(std::string(value, PROPERTY_VALUE_MAX + 1), std::string(91, 'c') + '\0' + 'z');
    EXPECT_EQ(property_get("zelva.unset", value, long_ro.c_str()), 91);  // defaults are cut too
    EXPECT_EQ(std::string(value), std::string(91, 'c'));
}

TEST(PropertyStoreTest, TypedReadsParseTheStoredText) {
    // text, GetIntProperty (default -1), GetBoolProperty (-1: the default)
    const std::vector<std::tuple<const char*, int, int>> cases = {
            {"42", 42, -1}, {"-7", -7, -1}, {"4x", -1, -1}, {"", -1, -1},     {"1", 1, 1},
            {"0", 0, 0},    {"true", -1, 1}, {"off", -1, 0}, {"maybe", -1, -1}};
    for (const auto& [text, as_int, as_bool] : cases) {
        ASSERT_EQ(property_set("zelva.typed", text), 0);
        EXPECT_EQ(android::base::GetIntProperty("zelva.typed", -1), as_int) << text;
        EXPECT_EQ(android::base::GetBoolProperty("zelva.typed", false), as_bool == 1) << text;
        EXPECT_EQ(android::base::GetBoolProperty("zelva.typed", true), as_bool != 0) << text;
    }
    property_set("zelva.typed", "42");
    EXPECT_EQ(android::base::GetIntProperty("zelva.typed", 0, -5, 5), 0);  // out of range
}

// The built library as init loads it: property_set/property_get resolve through its handle
// (they live in its dependency libhostplatform.so), and its own code shares their store: slot 3
// reads the media source and records the mount result (the absent source fails harmlessly).
void UseTheBuiltLibrary() {
    void* lib = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    auto set = reinterpret_cast<int (*)(const char*, const char*)>(dlsym(lib, "property_set"));
    auto get = reinterpret_cast<int (*)(const char*, char*, const char*)>(
            dlsym(lib, "property_get"));
    auto fetch = reinterpret_cast<android::init::IInitExtensionProperty* (*)(const char*)>(
            dlsym(lib, "QRAV_FETCH_IInitExtensionProperty"));
    if (lib == nullptr || set == nullptr || get == nullptr || fetch == nullptr) _exit(1);
    char roundtrip[PROPERTY_VALUE_MAX], media[PROPERTY_VALUE_MAX];
    set("zelva.dl", "x");
    get("zelva.dl", roundtrip, "unset");
    set("ro.sys.custommedia.sourcepath", "/my_zelva_absent_media_source");
    fetch("libzelvaextproperty.so")->bindCustomizeMediaPath("/my_zelva_absent_target");
    get("sys.mount.mediapath.success", media, "unset");
    fprintf(stderr, "roundtrip=%s media=%s\n", roundtrip, media);
    _exit(0);
}

TEST(PropertyStoreTest, BuiltLibrarySharesTheStoreWithItsHost) {
    // In a child, so that this process stays clean.
    EXPECT_EXIT(UseTheBuiltLibrary(), testing::ExitedWithCode(0), "roundtrip=x media=-1");
}

// One thread sets through both APIs while this one reads through both and through the
// library's own code (for ThreadSanitizer).
TEST(PropertyStoreThreadTest, ConcurrentSetsAndReads) {
    std::thread writer([] {
        for (int i = 0; i < 3000; ++i) {
            if (i % 2 == 0) android::base::SetProperty("zelva.race", i % 4 == 0 ? "one" : "");
            if (i % 2 == 1) property_set("zelva.race", "two-two");
        }
    });
    int bad = 0;
    for (int i = 0; i < 3000; ++i) {
        for (const std::string& value : {android::base::GetProperty("zelva.race", "unset"),
                                         CutilsGet("zelva.race", "unset"),
                                         ExpandProps("${zelva.race:-unset}").value_or("?")}) {
            bad += value != "one" && value != "two-two" && value != "unset";
        }
    }
    writer.join();
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(CutilsGet("zelva.race"), "two-two");
}

}  // namespace
}  // namespace zelva_test
