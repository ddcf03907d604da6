// SPDX-License-Identifier: Apache-2.0
// The host's system property store: one map guarded by one mutex, shared by
// the cutils API (property_get/property_set) and by libbase's property
// functions as the extension library sees them, so that a value set through
// either is read back through the other. Hosts (the simulator, tests) also use
// it directly to seed and inspect properties.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace hostplatform {

// The value of |name|, or nullopt when it is unset. Values are never empty:
// setting "" clears a property, as on a device.
std::optional<std::string> GetProperty(const std::string& name);

// Sets |name| to |value| (clears it when |value| is empty). Returns false for
// an empty name or for a value the device would refuse (92 bytes or more for a
// name outside "ro.").
bool SetProperty(const std::string& name, const std::string& value);
// The same, taking the name and value rather than copying them.
bool SetProperty(std::string&& name, std::string&& value);

// Every property that is set, sorted by name.
std::map<std::string, std::string> SnapshotProperties();

// Shows |visit| every property that is set, under the store's lock: no copy of
// a store that can hold a whole large build.prop.
void VisitProperties(const std::function<void(const std::map<std::string, std::string>&)>& visit);

// Clears every property.
void ResetProperties();

}  // namespace hostplatform
