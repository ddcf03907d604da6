// SPDX-License-Identifier: Apache-2.0
// The override entries of slots 7 (COTA), 8 (nightjar), 9 and 10 (SIM switch), the boot
// logo copy and the media path bind (slot 3).

#include <sys/mount.h>

#include "cota_test_support.h"

namespace zelva_test {
namespace {

// Each case makes one call on its own device: a path (slot 3 with that target), "7", "8", "9"
// or a trigger of slot 10. Its state lists file contents ("-": missing) and properties after.
TEST(SimSwitchTest, OverrideSlotsMediaPathTriggersAndLogoCopy) {
    const std::string tree =
            "/my_carrier/properties/vf/SimSwitchFirstTime/a.prop=sim.first=1 /dev/block/by-name/ "
            "/my_carrier/properties/vfc/SimSwitchCurrentTime/a.prop=sim.current=1 /system/media/ "
            "/my_region/properties/DE/regionSwitch/r.prop=region.de=1 /my_extra/inner=x "
            "/my_carrier/etc/build.vdf-eu.prop=ssv.opt=1 /my_carrier/etc/build.old.prop=ssv.old=1 "
            "/mnt/c/properties/vf/SimSwitchFirstTime/c.prop=cota.first=1 /my_product/media/sub/ "
            "/my_carrier/build.prop=carrier.prop=1 /mnt/c/build.prop=ro.zelva.image.my_bigball."
            "version_name=V-1 ";
    const std::string src = "ro.sys.custommedia.sourcepath=", mine = src + "/my_product/media";
    const std::string ok = "sys.mount.mediapath.success=", inner = " /system/media/sub/inner=";
    const std::string vf = "sys.sim.switch.first=vf ", cota = vf + "sys.cota.load.properties=";
    const std::string dated = "ro.zelva.image.my_company.date.utc=17 ", path = "triggerLogoCopy/";
    const std::string img = "/my_company/media/logo/logo.img=IMG ", none = "No logo resource found";
    const std::string bin = "/my_company/media/logo/logo.bin=BIN ", special = " " + kSpecial;
    const std::string splash = "/dev/block/by-name/splash_odm=", blank = splash + "........";
    const std::string record = " persist.record.my_company.date.forlogo=", logo = img + bin + blank;
    const std::string company = "triggerLogoCopyFromCompany", boot = company + "Boot";
    struct Case {  // info: the one INFO line expected, if any
        std::string call, props, files = {}, sent = {}, info = {}, state = {};
    } cases[] = {
            {"/system/media", mine, "", "", "Mount ringtones result :0", ok + "0" + inner + "x"},
            {"/no/such/dir", mine, "", "", "Mount ringtones result :-1", ok + "-1"},
            {"/system/media", src + "/system/media", "", "", "", ok + inner + "-"},
            {"8", "", "/my_company/etc/build.prop=ro.nightjar=1", "{ro.nightjar=1}" + special},
            {"8", "", "", "{}" + special, "can not read prop from :/my_company/etc/build.prop"},
            {"9", vf + "sys.sim.switch.current=vfc sys.region.switch.first=DE", "",
             "{region.de=1 sim.current=1 sim.first=1}" + special},
            // The operator pair replaces the SSV key that the object held ("old").
            {"9", "persist.sys.zelva.operator.opta=VDF persist.sys.zelva.operator.optb=EU", "",
             "{ssv.opt=1}" + special},
            {"9", cota + "/mnt/c sys.cotaimg.verify=1", "", "{cota.first=1 sim.first=1}" + special},
            {"9", cota + "/mnt/c sys.cotaimg.verify=10", "", "{sim.first=1}" + special},
            {"9", cota + "0 sys.cotaimg.verify=1", "", "{sim.first=1}" + special},
            {"9", "", "", kSpecial},
            // Slot 7 loads a verified COTA directory: verify exactly "1", a load path not "0".
            {"7", cota + "/mnt/c sys.cotaimg.verify=10"},
            {"7", cota + "0 sys.cotaimg.verify=1"},
            // The bigball version renamed, then the special properties.
            {"7", cota + "/mnt/c sys.cotaimg.verify=1 ro.zelva.customize.display.version_name=D",
             "", "{ro.zelva.image.my_carrier.version_name=V-1}" + special},
            {"propertiesOverrideSwitch", dated, logo, "{carrier.prop=1}"},
            {"propertiesOverrideSwitchX", dated, logo, ""},
            {boot, dated, logo, "", "", splash + "IMG....." + record + "17"},
            {boot, dated + record + "17", logo, "", "Logo copied, no need to process again", blank},
            {company, dated + record + "17", logo, "", "", splash + "IMG....."},
            {boot, dated, bin + blank, "", "", splash + "BIN....." + record + "17"},
            {boot, "", logo, "", "Missing component information", blank},
            {boot, dated, blank, "", none, blank},
            {path + "data/l", dated, "/data/l=RAW " + blank, "", "", splash + "RAW....." + record},
            {company + "X", dated, logo, "", none, blank},
            {path + "data/none", dated, logo, "", none, blank},
            {boot, dated, img + bin, "", "Can not access the target Partition", splash + "-"},
            {boot, dated, img + bin + splash + "..", "", "Logo resource is too large",
             splash + ".." + record},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.call + " " + c.props + " " + c.files);
        sandbox::Outcome o = RunDevice(tree + c.files, kSeed + " " + c.props, [&](auto& ctx) {
            // A mount below the media source: only a recursive bind carries it along.
            mount("/my_extra", "/my_product/media/sub", nullptr, MS_BIND, nullptr);
            if (c.props.find("opta") != std::string::npos) Impl()->ssvOldKey = "old";
            c.call[0] == '/' ? Impl()->bindCustomizeMediaPath(c.call.c_str())
            : c.call == "7"  ? Impl()->loadCotaOverrideProperties(ctx.sink())
            : c.call == "8"  ? Impl()->loadNightjarOverrideProperties(ctx.sink())
            : c.call == "9"  ? Impl()->loadSimSwitchOverrideProperties(ctx.sink())
                             : Impl()->loadSimSwitchOverrideProperties(c.call, ctx.sink());
        });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(Sent(o), c.sent);
        EXPECT_EQ(o.Messages(android::base::INFO), c.info.empty() ? Lines{} : Lines{c.info});
        PropertyMap state;
        for (const auto& [key, value] : P(c.state)) {
            state[key] = key[0] == '/' ? o.FileContent(key).value_or("-") : o.properties[key];
        }
        EXPECT_EQ(state, P(c.state));
    }
}

}  // namespace
}  // namespace zelva_test
