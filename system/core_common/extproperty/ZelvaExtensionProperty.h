// SPDX-License-Identifier: Apache-2.0
// The property-extension object and the library's internal interfaces.
#pragma once

#include <sys/mount.h>

#include <mutex>
#include <string>
#include <vector>

#include "IInitExtensionProperty.h"

namespace android {
namespace init {

class InitExtensionPropertyImpl : public IInitExtensionProperty {
  public:
    // The process-wide object, created on first use and never destroyed.
    static InitExtensionPropertyImpl* getInstance();

    InitExtensionPropertyImpl();
    ~InitExtensionPropertyImpl() noexcept override;

    // Operation table, in slot order. Nothing is thrown back to init: an
    // exception escaping an operation ends the process.
    void setLibName(const char* libName) noexcept override;
    void bindCustomizeMediaPath(const char* target) noexcept override;
    void loadExtensionPartitionProperties(PropertyMap* props) noexcept override;
    void loadExtensionPartitionProperties(std::string dir, PropertyMap* props) noexcept override;
    int loadPersistOverrideProperties(PropertySink sink) noexcept override;
    void loadCotaOverrideProperties(PropertySink sink) noexcept override;
    void loadNightjarOverrideProperties(PropertySink sink) noexcept override;
    void loadSimSwitchOverrideProperties(PropertySink sink) noexcept override;
    void loadSimSwitchOverrideProperties(std::string trigger, PropertySink sink) noexcept override;
    void loadCotaServiceOverrideProperties(std::string command,
                                           PropertySink sink) noexcept override;

    // Partition property sets (ZelvaExtensionProperty_partition.cpp).
    void modifyComponentPriorityIfNeed(PropertyMap* props);
    void loadPropertiesFromDir(const std::string& dir, PropertyMap* props);
    void loadExtensionPartitionSimswitchProperties(std::string dir, PropertyMap* props);

    // Persist override pipeline (ZelvaExtensionProperty_persist.cpp).
    void loadOverridePropertiesByPriority(PropertySink sink);

    // Switch key resolution at boot (ZelvaExtensionProperty_keyresolution.cpp).
    void loadExtensionSimswitchKeyInfo(PropertyMap* props);

    // Boot logo (ZelvaExtensionProperty_simswitch.cpp).
    void copyLogoIfNeeded(std::string trigger);

    // COTA (ZelvaExtensionProperty_cota*.cpp).
    void updateCotaInfoProperties(PropertySink sink);
    void bindCotaBasicMountPoint(PropertySink sink);
    void bindCotaModuleMountPoint(PropertySink sink);
    void loadCotaConfigureModuleProperties(std::string dir, PropertySink sink);
    void bindAndLoadCotaOverrideProperties(PropertySink sink);

    // State, in declaration order. The keys choose which property sets apply;
    // they carry over from one operation to the next for the whole boot.
    std::string libName;
    std::string regionSwitchKey;
    std::string simSwitchFirstKey;
    std::string simSwitchCurrentKey;
    std::string switchCarrierChannelKey;
    std::string spareKey;  // declared with the keys; nothing uses it
    std::string nvOldFlag;
    std::string nvOldKey;
    std::string ssvOldKey;
    std::mutex mutex;  // held by loadCotaServiceOverrideProperties
};

// --- Key members (ZelvaExtensionProperty.cpp) ---

// The COTA bind thread reads the key members while host calls assign them.
// Every read and write of a key member goes through these, which hold one
// library-wide lock for that one copy, test or assignment only: nobody waits
// longer than a string copy, and no lock is held while loading.
std::string CopyKey(const std::string& key);
bool IsKeyEmpty(const std::string& key);
void AssignKey(std::string* key, std::string value);

// --- Customization directory lists (ZelvaExtensionProperty.cpp) ---

// Fills both lists, each only while it is empty.
void InitCustDirList();
// The 33 customization directories, in the order their properties apply.
const std::vector<std::string>& CustDirList();
// "/my_carrier", then "/my_company".
const std::vector<std::string>& PriorityDirList();

// How the first list is made, for tools that check a device tree:
// The 33 customization directories of a brand letter and SKU region, in order.
std::vector<std::string> CustDirListFor(const std::string& letter, const std::string& region);
// "A", "B" or "C" for a brand of alder, birch or cedar in any letter case; "" otherwise.
std::string BrandLetter(const std::string& brand);
// The letter of ro.zelva.image.system_ext.brand in /system_ext/etc/build.prop.
std::string GetBrandLetter();
// ro.zelva.pipeline.region from /my_region, else from /mnt/vendor/my_region.
std::string GetSkuRegion();

// --- Derived, data, channel and network properties (ZelvaExtensionProperty_derived.cpp) ---
void loadSpecialProperties(PropertySink sink);
void checkAndRestoreChannelInfo(PropertySink sink);
void forceInternetConnection(PropertySink sink);
void loadDataSpecialProperties(PropertySink sink);

// The old SSV key of an operator pair: "ABC", "Def" -> "abc-def".
std::string OperatorSsvKey(const std::string& opta, const std::string& optb);

// --- Market name (ZelvaExtensionProperty_marketname.cpp) ---
void updateMarketName(PropertySink sink);

// --- Switch-key stores and lookups (ZelvaExtensionProperty_switchkeys.cpp) ---
void find_nv_ssv_target_key(std::string key, std::string mapFileName, std::string* target);
void find_nv_source_key(std::string* source, std::string mapFileName, std::string target);
void load_old_nv_key(std::string* nvFlag, std::string* nvKey);
void read_old_ssv_key(std::string* ssvKey);
void load_convert_first_key(std::string* firstKey, std::string nvFlag, std::string ssvKey);
int createDirectory(std::string path);

// --- Domestic region switch (ZelvaExtensionProperty_regionswitch.cpp) ---
void doRegionSwitchForDomestic();
bool isConvertFromCustomMap(std::string path);
bool saveRegionSwitchKeyOnReserve(const std::string& value);

// --- COTA (ZelvaExtensionProperty_cota*.cpp) ---

// Every COTA bind is read-only: MS_BIND | MS_RDONLY | MS_NODEV | MS_DIRSYNC | MS_NOATIME.
constexpr unsigned long kCotaBindFlags = MS_BIND | MS_RDONLY | MS_NODEV | MS_DIRSYNC | MS_NOATIME;
static_assert(kCotaBindFlags == 0x1485);

// Composes ro.zelva.customize.display.version_name from the display version,
// the carrier image's version name and the COTA version name. A display
// version of one character ends the process.
void loadCustomizeDisplayVersionName(PropertySink sink) noexcept;
// my_bigball image entries become my_carrier entries; existing ones win.
void renameBigballToCarrier(PropertyMap* props);

}  // namespace init
}  // namespace android
