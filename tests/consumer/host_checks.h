// SPDX-License-Identifier: Apache-2.0
// What a host of the installed library checks once it holds the factory: the
// object loads the build.prop of a directory of the host's choosing (slot 5).
#pragma once

#include <IInitExtensionProperty.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

using Factory = android::init::IInitExtensionProperty* (*)(const char*);

inline int Check(bool ok, const char* what) {
    if (!ok) fprintf(stderr, "FAILED: %s\n", what);
    return ok ? 0 : 1;
}

// Returns the number of failed checks. Slot 5 goes through the operation table
// as the installed header declares it, so a header out of step with the
// library fails here.
inline int RunHostChecks(Factory factory) {
    using android::init::PropertyMap;
    android::init::IInitExtensionProperty* object = factory("libzelvaextproperty.so");
    if (object == nullptr) return Check(false, "the factory returns an object");

    char dir[] = "/tmp/zelva-consumer-XXXXXX";
    if (mkdtemp(dir) == nullptr) return Check(false, "mkdtemp");
    const std::string prop_file = std::string(dir) + "/build.prop";
    std::ofstream(prop_file) << "ro.consumer.name=alder\n# a comment\nro.consumer.region=EU\n";

    PropertyMap props;
    object->loadExtensionPartitionProperties(dir, &props);
    remove(prop_file.c_str());
    rmdir(dir);
    return Check(props == PropertyMap{{"ro.consumer.name", "alder"}, {"ro.consumer.region", "EU"}},
                 "slot 5 loads the directory's build.prop");
}
