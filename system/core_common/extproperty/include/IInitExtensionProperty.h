// SPDX-License-Identifier: Apache-2.0
/*
 * The contract between init and libzelvaextproperty.
 *
 * init loads the library, calls QRAV_FETCH_IInitExtensionProperty() and calls
 * the object's operations at fixed points of boot. Operations either fill a
 * map that init passes in or hand batches of properties back through a
 * PropertySink, once per batch, synchronously. The object belongs to the
 * library and is never deleted by init.
 *
 * The order of the virtual functions below is the operation table that init
 * is built against; do not reorder, insert or remove any of them.
 */
#pragma once

#include <functional>
#include <map>
#include <string>

namespace android {
namespace init {

// Property name to value, ordered by byte-wise comparison of the names.
using PropertyMap = std::map<std::string, std::string>;

// init's callback: a batch kind code and the batch, by value.
//   0  ordinary properties to set
//   1  the company partition's properties whose names don't begin with "ro."
//   2  restore batches (channel reset, company image date record)
using PropertySink = std::function<void(int, PropertyMap)>;

class IInitExtensionProperty {
  public:
    // Slots 0 and 1.
    virtual ~IInitExtensionProperty() {}
    // Slot 2.
    virtual void setLibName(const char* libName) = 0;
    // Slot 3: bind-mounts the customization media path onto |target|.
    virtual void bindCustomizeMediaPath(const char* target) = 0;
    // Slot 4: every customization partition's build.prop into |props|.
    virtual void loadExtensionPartitionProperties(PropertyMap* props) = 0;
    // Slot 5: one directory's build.prop into |props|.
    virtual void loadExtensionPartitionProperties(std::string dir, PropertyMap* props) = 0;
    // Slot 6: the persist override pipeline; always returns 0.
    virtual int loadPersistOverrideProperties(PropertySink sink) = 0;
    // Slot 7: properties of a verified COTA image.
    virtual void loadCotaOverrideProperties(PropertySink sink) = 0;
    // Slot 8: special-edition company properties.
    virtual void loadNightjarOverrideProperties(PropertySink sink) = 0;
    // Slot 9: SIM-switch and region-switch property sets.
    virtual void loadSimSwitchOverrideProperties(PropertySink sink) = 0;
    // Slot 10: "propertiesOverrideSwitch" or a "triggerLogoCopy..." trigger.
    virtual void loadSimSwitchOverrideProperties(std::string trigger, PropertySink sink) = 0;
    // Slot 11: reserved; does nothing and returns 0.
    virtual int loadOverrideProperty(std::string, std::string, PropertySink) { return 0; }
    // Slot 12: COTA service commands.
    virtual void loadCotaServiceOverrideProperties(std::string command, PropertySink sink) = 0;
};

}  // namespace init
}  // namespace android

// The library's only entry point. |libName| must be a valid C string.
extern "C" __attribute__((visibility("default"))) android::init::IInitExtensionProperty*
QRAV_FETCH_IInitExtensionProperty(const char* libName);
