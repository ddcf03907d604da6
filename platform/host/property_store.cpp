// SPDX-License-Identifier: Apache-2.0
#include "hostplatform/property_store.h"

#include <cutils/properties.h>
#include <string.h>

#include <mutex>

namespace hostplatform {
namespace {

struct Store {
    std::mutex lock;
    std::map<std::string, std::string> values;
};

Store& TheStore() {
    // Never destroyed: detached threads may still read properties while the
    // process exits.
    static Store* store = new Store;
    return *store;
}

bool StartsWithRo(const std::string& name) {
    return name.compare(0, 3, "ro.") == 0;
}

}  // namespace

std::optional<std::string> GetProperty(const std::string& name) {
    Store& store = TheStore();
    std::lock_guard<std::mutex> guard(store.lock);
    auto it = store.values.find(name);
    if (it == store.values.end()) return std::nullopt;
    return it->second;
}

bool SetProperty(const std::string& name, const std::string& value) {
    return SetProperty(std::string(name), std::string(value));
}

bool SetProperty(std::string&& name, std::string&& value) {
    if (name.empty()) return false;
    if (value.size() >= PROPERTY_VALUE_MAX && !StartsWithRo(name)) return false;
    Store& store = TheStore();
    std::lock_guard<std::mutex> guard(store.lock);
    if (value.empty()) {
        store.values.erase(name);
    } else {
        store.values.insert_or_assign(std::move(name), std::move(value));
    }
    return true;
}

std::map<std::string, std::string> SnapshotProperties() {
    Store& store = TheStore();
    std::lock_guard<std::mutex> guard(store.lock);
    return store.values;
}

void VisitProperties(const std::function<void(const std::map<std::string, std::string>&)>& visit) {
    Store& store = TheStore();
    std::lock_guard<std::mutex> guard(store.lock);
    visit(store.values);
}

void ResetProperties() {
    Store& store = TheStore();
    std::lock_guard<std::mutex> guard(store.lock);
    store.values.clear();
}

}  // namespace hostplatform

namespace {

int CopyTruncated(char* out, const char* in) {
    size_t len = strnlen(in, PROPERTY_VALUE_MAX - 1);
    memcpy(out, in, len);
    out[len] = '\0';
    return static_cast<int>(len);
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (key != nullptr) {
        if (auto stored = hostplatform::GetProperty(key)) {
            return CopyTruncated(value, stored->c_str());
        }
    }
    return CopyTruncated(value, default_value != nullptr ? default_value : "");
}

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr) return -1;
    return hostplatform::SetProperty(key, value != nullptr ? value : "") ? 0 : -1;
}
