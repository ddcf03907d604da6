// SPDX-License-Identifier: Apache-2.0
// The built library's exported surface and how a host loads it.

#include <stdio.h>

#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

using testing::HasSubstr;

// The standard output of the shell |command|, which must succeed.
std::string Output(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    std::string out(1 << 16, '\0');
    out.resize(pipe != nullptr ? fread(out.data(), 1, out.size(), pipe) : 0);
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command;
    return out;
}

TEST(ExportsTest, NineEntryPointsAndLoadsWithoutLibraryPath) {
    // "<address> <type> <name>" lines; a C++ name is cut before its parameter list.
    EXPECT_EQ(Output("nm -DC --defined-only " + LibraryPath() +
                     " | sed 's/^[^ ]* [^ ]* //; s/(.*//' | LC_ALL=C sort"),
              "IsLegalPropertyName\nIsLegalPropertyValue\nQRAV_FETCH_IInitExtensionProperty\n"
              "ReadFdToStringWithOffset\nReadFileWithOffset\nWriteStringToFd\nWriteStringToFile\n"
              "getPathName\ntrimPath\n");
    // It needs libhostplatform.so, found through its run path in the private
    // directory beside it.
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
