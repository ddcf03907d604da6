// SPDX-License-Identifier: Apache-2.0
// A NUL byte inside a property line. Trailing whitespace is cut from the line as
// its bytes stand, and a NUL is not whitespace; the NUL then ends the line's
// text. So a blank just before the NUL stays in the value, for the loader, the
// single-property lookup and lint.

#include <filesystem>

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "test_support.h"
#include "utils.h"

namespace zelva_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using namespace std::string_literals;  // "a\0b"s keeps the NUL

class PropertyLineNulTest : public testing::Test {
  protected:
    std::string Put(const std::string& content) {
        const std::string path = std::string(dir_.path) + "/file.prop";
        EXPECT_TRUE(android::base::WriteStringToFile(content, path));
        return path;
    }
    TemporaryDir dir_;
};

TEST_F(PropertyLineNulTest, LoaderKeepsTheBlankBeforeANul) {
    const std::string path =
            Put("ro.zelva.image.system_ext.brand=alder \0\n"
                "after.nul=1\0 tail  \n"s);
    PropertyMap props;
    ASSERT_TRUE(load_properties_from_file_without_se(path.c_str(), nullptr, &props));
    EXPECT_THAT(props, ElementsAre(Pair("after.nul", "1"),
                                   Pair("ro.zelva.image.system_ext.brand", "alder ")));
}

TEST_F(PropertyLineNulTest, LookupKeepsTheBlankBeforeANul) {
    const std::string path = Put("ROM=256 \0\nmarket=Alder\0\t\n"s);
    EXPECT_EQ(load_property_from_file(path.c_str(), "ROM"), "256 ");
    EXPECT_EQ(load_property_from_file(path.c_str(), "market"), "Alder");
}

// Writes |content| at |path| below |root|, making the parent directories.
void PutInTree(const std::string& root, const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(root + path).parent_path());
    ASSERT_TRUE(android::base::WriteStringToFile(content, root + path)) << path;
}

// lint reads the brand and the import lines as the library does.
TEST(PropertyLineNulLintTest, LintReadsNulLinesAsTheLibrary) {
    TemporaryDir tree;
    const std::string root = tree.path;
    PutInTree(root, "/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder \0\n"s);
    // "import " and a NUL: an import of the empty name, which names no file.
    PutInTree(root, "/my_region/build.prop", "ro.zelva.pipeline.region=EU\nimport \0\n"s);

    TemporaryFile out;
    const std::string run = std::string(ZELVA_SIMULATOR_PATH) + " lint " + root + " >" + out.path;
    ASSERT_NE(system(run.c_str()), -1);
    std::string report;
    ASSERT_TRUE(android::base::ReadFileToString(out.path, &report));
    EXPECT_THAT(report, HasSubstr("warning: brand 'alder ' is not alder, birch or cedar"));
    EXPECT_THAT(report, HasSubstr("/my_region/build.prop:2: error: import '' names no file"));
    EXPECT_THAT(report, Not(HasSubstr("not a regular file")));
}

}  // namespace
}  // namespace zelva_test
