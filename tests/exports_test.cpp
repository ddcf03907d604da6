// The built library's exported surface and how a host loads it.

#include <stdio.h>

#include <set>
#include <sstream>

#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

using testing::HasSubstr;

std::string Output(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    std::string out(1 << 16, '\0');
    out.resize(pipe != nullptr ? fread(out.data(), 1, out.size(), pipe) : 0);
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command;
    return out;
}

TEST(ExportsTest, DynamicSymbolTableHoldsExactlyTheNineEntryPoints) {
    std::multiset<std::string> names;
    std::istringstream lines(Output("nm -DC --defined-only " + LibraryPath()));
    for (std::string line; std::getline(lines, line);) {
        // "<address> <type> <name>"; a C++ name is cut before its parameter list.
        const std::string name = line.substr(line.find(' ', line.find(' ') + 1) + 1);
        names.insert(name.substr(0, name.find('(')));
    }
    EXPECT_EQ(names, (std::multiset<std::string>{
                             "QRAV_FETCH_IInitExtensionProperty", "IsLegalPropertyName",
                             "IsLegalPropertyValue", "ReadFileWithOffset",
                             "ReadFdToStringWithOffset", "WriteStringToFile", "WriteStringToFd",
                             "trimPath", "getPathName"}));
}

TEST(ExportsTest, NeedsHostPlatformAndLoadsWithoutLibraryPath) {
    EXPECT_THAT(Output("readelf -d " + LibraryPath()),
                HasSubstr("(NEEDED)             Shared library: [libhostplatform.so]"));
    const std::string dir = LibraryPath().substr(0, LibraryPath().rfind('/'));
    const std::string ldd = Output("env -u LD_LIBRARY_PATH ldd " + LibraryPath() + " 2>&1");
    EXPECT_THAT(ldd, testing::Not(HasSubstr("not found")));
    EXPECT_THAT(ldd, HasSubstr("libhostplatform.so => " + dir + "/libhostplatform.so"));
}

}  // namespace
}  // namespace zelva_test
