// SPDX-License-Identifier: Apache-2.0
// The built library's exported surface and how a host loads it.

#include <stdio.h>

#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// The standard output of the shell |command|, which must succeed.
std::string Output(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    std::string out(1 << 16, '\0');
    out.resize(pipe != nullptr ? fread(out.data(), 1, out.size(), pipe) : 0);
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command;
    return out;
}

TEST(ExportsTest, ExportsExactlyNineEntryPoints) {
    // "<address> <type> <name>" lines; a C++ name is cut before its parameter list.
    const std::string names = Output("nm -DC --defined-only " + LibraryPath() +
                                     " | sed 's/^[^ ]* [^ ]* //; s/(.*//' | LC_ALL=C sort");
    EXPECT_THAT(android::base::Split(android::base::Trim(names), "\n"),
                ElementsAre("IsLegalPropertyName", "IsLegalPropertyValue",
                            "QRAV_FETCH_IInitExtensionProperty", "ReadFdToStringWithOffset",
                            "ReadFileWithOffset", "WriteStringToFd", "WriteStringToFile",
                            "getPathName", "trimPath"));
}

TEST(ExportsTest, FindsItsPlatformLibraryThroughItsRunPath) {
    EXPECT_THAT(Output("readelf -d " + LibraryPath()),
                HasSubstr("(NEEDED)             Shared library: [libhostplatform.so]"));
    const std::string dir = LibraryPath().substr(0, LibraryPath().rfind('/'));
    EXPECT_THAT(Output("env -u LD_LIBRARY_PATH ldd " + LibraryPath() + " 2>&1"),
                AllOf(testing::Not(HasSubstr("not found")),
                      HasSubstr("libhostplatform.so => " + dir +
                                "/zelvaextproperty/libhostplatform.so")));
}

}  // namespace
}  // namespace zelva_test
