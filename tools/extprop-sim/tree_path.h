// SPDX-License-Identifier: Apache-2.0
// Device paths inside a device tree on the host: the tree's absolute symbolic
// links (mnt/vendor/my_product -> /my_product) point into the tree, not into
// the host's root.
#pragma once

#include <string>

namespace extprop_sim {

// The host path of |device_path| under |root|, every symbolic link on the way
// resolved inside |root|; the final component's link is followed only when
// |follow_final| is set (the library's reads don't follow it). Returns "" when
// the links loop.
std::string HostPath(const std::string& root, const std::string& device_path, bool follow_final);

}  // namespace extprop_sim
