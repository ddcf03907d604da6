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

static std::string CutilsGet(const char* name, const char* default_value = "dflt") {
    char value[PROPERTY_VALUE_MAX];
    return property_get(name, value, default_value) >= 0 ? value : "?";
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
    LIBRARY_FUNCTION(lib, QRAV_FETCH_IInitExtensionProperty)("libzelvaextproperty.so")
            ->bindCustomizeMediaPath("/my_zelva_absent_target");
    LIBRARY_FUNCTION(lib, property_get)("sys.mount.mediapath.success", media, "unset");
    _exit(media != std::string("-1"));
}

TEST(PropertyStoreTest, OneStoreForBothApisTheLibraryAndTheBuiltLibrary) {
    std::string raw(PROPERTY_VALUE_MAX + 1, 'z'), v91(91, 'a'), v92(92, 'b'), v300(300, 'a');
    auto s = [](auto x) { return std::to_string(x); };
    auto typed = [&](const char* text) {  // GetIntProperty in [-5, 5]; GetBoolProperty, 2 defaults
        property_set("z.t", text);
        return s(GetIntProperty("z.t", 0, -5, 5)) + "/" + s(GetBoolProperty("z.t", false)) +
               s(GetBoolProperty("z.t", true));
    };
    Check({{s(property_set("z.a", "cutils")), "0"}, {ExpandProps("${z.a}").value_or("?"), "cutils"},
           {s(SetProperty("b", "v")), "1"}, {CutilsGet("b"), "v"}, {s(property_set("b", "")), "0"},
           {CutilsGet("b") + CutilsGet("b", nullptr) + GetProperty("b", "unset"), "dfltunset"},
           {s(property_set("roz", v91.c_str())), "0"}, {s(property_set("roz", v92.c_str())), "-1"},
           {s(SetProperty("roz", v92)), "0"}, {CutilsGet("roz"), v91},  // nothing changed
           {s(SetProperty("ro.z", v300)), "1"}, {GetProperty("ro.z", ""), v300},
           {s(property_get("ro.z", raw.data(), "")), "91"}, {raw, v91 + '\0' + 'z'},
           {CutilsGet("z.unset", v300.c_str()), v91},  // defaults are cut too
           {typed("42"), "0/01"}, {typed("5"), "5/01"}, {typed("-7"), "0/01"}, {typed("x"), "0/01"},
           {typed(""), "0/01"}, {typed("1"), "1/11"}, {typed("n"), "0/00"}, {typed("y"), "0/11"}});
    EXPECT_EXIT(UseTheBuiltLibrary(), testing::ExitedWithCode(0), "");  // a child stays clean
}

// One thread sets through both APIs while this one reads through both and through the
// library's own code (for ThreadSanitizer).
TEST(PropertyStoreThreadTest, ConcurrentSetsAndReads) {
    std::thread writer([] {
        for (int i = 0; i < 1500; ++i) {
            SetProperty("z.race", i % 2 == 0 ? "one" : "");
            property_set("z.race", "two-two");
        }
    });
    for (int i = 0; i < 3000; ++i) {
        EXPECT_THAT(GetProperty("z.race", "u") + CutilsGet("z.race", "u") +
                            ExpandProps("${z.race:-u}").value_or("?"),
                    testing::MatchesRegex("(one|two-two|u){3}"));
    }
    writer.join();
    EXPECT_EQ(CutilsGet("z.race"), "two-two");
}

}  // namespace zelva_test
