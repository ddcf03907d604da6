// SPDX-License-Identifier: Apache-2.0
// The library's entry point, the property-extension object and the
// customization directory lists that its loaders walk.

#include "ZelvaExtensionProperty.h"

#include <strings.h>

#include "extension_paths.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

// Library-wide; written only while the first object is constructed, under
// the singleton lock, and read-only afterwards.
std::vector<std::string> gCustDirList;
std::vector<std::string> gPriorityDirList;

// Guards the key members of the object (not its mutex, which slot 12 holds
// for a whole command). Never held while anything else is done.
std::mutex gKeyLock;

}  // namespace

std::string CopyKey(const std::string& key) {
    std::lock_guard<std::mutex> guard(gKeyLock);
    return key;
}

bool IsKeyEmpty(const std::string& key) {
    std::lock_guard<std::mutex> guard(gKeyLock);
    return key.empty();
}

void AssignKey(std::string* key, std::string value) {
    std::lock_guard<std::mutex> guard(gKeyLock);
    key->swap(value);  // |value| takes the old key, freed after the lock is released
}

std::string BrandLetter(const std::string& brand) {
    if (strcasecmp(brand.c_str(), "alder") == 0) return "A";
    if (strcasecmp(brand.c_str(), "birch") == 0) return "B";
    if (strcasecmp(brand.c_str(), "cedar") == 0) return "C";
    return "";
}

std::string GetBrandLetter() {
    return BrandLetter(load_property_from_file(kSystemExtBuildProp, kBrandProperty));
}

std::string GetSkuRegion() {
    std::string region = load_property_from_file(kRegionBuildProp, kSkuRegionProperty);
    if (region.empty()) {
        region = load_property_from_file(kVendorRegionBuildProp, kSkuRegionProperty);
    }
    return region;
}

std::vector<std::string> CustDirListFor(const std::string& letter, const std::string& region) {
    // Every partition twice: at its early mount point under /mnt/vendor,
    // then at its final one. A later entry's properties win.
    return {
            "/odm",
            "/mnt/vendor/my_preload",
            "/mnt/vendor/my_wisp",
            "/mnt/vendor/my_stock",
            "/mnt/vendor/my_region/global",
            "/mnt/vendor/my_region/global/" + letter,
            "/mnt/vendor/my_product",
            "/mnt/vendor/my_region",
            "/mnt/vendor/my_region/" + letter,
            "/mnt/vendor/my_product/cust/" + region,
            "/mnt/vendor/my_carrier",
            "/mnt/vendor/my_carrier/cust",
            "/mnt/vendor/my_bigball",
            "/mnt/vendor/my_engineering",
            "/mnt/vendor/my_manifest",
            "/mnt/vendor/my_company",
            "/mnt/vendor/my_product/special",
            "/my_preload",
            "/my_wisp",
            "/my_stock",
            "/my_region/global",
            "/my_region/global/" + letter,
            "/my_product",
            "/my_region",
            "/my_region/" + letter,
            "/my_product/cust/" + region,
            "/my_carrier",
            "/my_carrier/cust",
            "/my_bigball",
            "/my_engineering",
            "/my_manifest",
            "/my_company",
            "/my_product/special",
    };
}

void InitCustDirList() {
    if (gCustDirList.empty()) {
        const std::string letter = GetBrandLetter();
        gCustDirList = CustDirListFor(letter, GetSkuRegion());
    }
    if (gPriorityDirList.empty()) {
        gPriorityDirList = {kCarrierDir, kCompanyDir};
    }
}

const std::vector<std::string>& CustDirList() {
    return gCustDirList;
}

const std::vector<std::string>& PriorityDirList() {
    return gPriorityDirList;
}

InitExtensionPropertyImpl* InitExtensionPropertyImpl::getInstance() {
    static std::mutex lock;
    std::lock_guard<std::mutex> guard(lock);
    static InitExtensionPropertyImpl* instance = new InitExtensionPropertyImpl();
    return instance;
}

InitExtensionPropertyImpl::InitExtensionPropertyImpl() {
    InitCustDirList();
}

InitExtensionPropertyImpl::~InitExtensionPropertyImpl() noexcept = default;

void InitExtensionPropertyImpl::setLibName(const char* name) noexcept {
    libName = name;
}

}  // namespace init
}  // namespace android

extern "C" android::init::IInitExtensionProperty* QRAV_FETCH_IInitExtensionProperty(
        const char* libName) {
    android::init::IInitExtensionProperty* object =
            android::init::InitExtensionPropertyImpl::getInstance();
    object->setLibName(libName);
    return object;
}
