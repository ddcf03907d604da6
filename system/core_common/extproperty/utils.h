// SPDX-License-Identifier: Apache-2.0
// Property-file machinery and file helpers of the extension library.
#pragma once

#include <map>
#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

// Functions marked EXTPROP_EXPORT are part of the library's exported surface;
// everything else stays inside the library.
#define EXTPROP_EXPORT __attribute__((visibility("default")))

using PropertyMap = std::map<std::string, std::string>;

// --- Property files (init syntax) ---

// Loads the properties of |filename| into |properties|, following "import"
// lines. A null or empty |filter| accepts every name; a filter ending in '*'
// accepts names that begin with the rest of it; any other filter accepts only
// that exact name. A later line replaces an earlier value. Returns false when
// the file could not be read.
bool load_properties_from_file_without_se(const char* filename, const char* filter,
                                          PropertyMap* properties);

// The value of the first line of |filename| that begins with |name| and holds
// a '=' (a prefix match), or "" when there is none or the file can't be read.
std::string load_property_from_file(const char* filename, const char* name);

// --- Property names, values and ${name} expansion ---

// Replaces each ${name} or ${name:-default} in |src| by the property's value;
// "$$" stands for one '$'.
android::base::Result<std::string> ExpandProps(const std::string& src);

EXTPROP_EXPORT bool IsLegalPropertyName(const std::string& name);
EXTPROP_EXPORT android::base::Result<void> IsLegalPropertyValue(const std::string& name,
                                                                const std::string& value);

// --- Files ---

// Reads a whole file; a final symbolic link is not followed.
android::base::Result<std::string> ReadFile(const std::string& path);
// Reads a whole file like android::base::ReadFileToString(path, content,
// false), but never waits on a FIFO put in place of the file.
bool ReadFileToStringNoFollow(const std::string& path, std::string* content);
// Creates or truncates |path| (mode 0600, final symlink not followed) and
// writes |content|. A write that fails leaves no half-written file behind.
android::base::Result<void> WriteFile(const std::string& path, const std::string& content);

// Reads exactly |length| bytes (at most 1024) at |offset|; bytes the file
// doesn't have are zeros.
EXTPROP_EXPORT android::base::Result<std::string> ReadFileWithOffset(const std::string& path,
                                                                     int offset, int length);
EXTPROP_EXPORT bool ReadFdToStringWithOffset(int fd, std::string* content, int offset, int length);
EXTPROP_EXPORT bool WriteStringToFile(const std::string& content, const std::string& path,
                                      bool follow_symlinks = false);
EXTPROP_EXPORT bool WriteStringToFd(const std::string& content, android::base::borrowed_fd fd);

// "/" in front, one trailing "/" removed: "a/b/" -> "/a/b", "/" -> "".
EXTPROP_EXPORT std::string trimPath(std::string path);
// The parent directory: "/a/b/c" -> "/a/b", "a" -> "/", "/" -> "/".
EXTPROP_EXPORT std::string getPathName(std::string path);

// Creates |path| and its missing parents (0755, root:root, SELinux label
// restored). Returns 0, or the failing call's non-zero result.
int createCotaDirectory(std::string path);
