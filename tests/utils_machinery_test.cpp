// SPDX-License-Identifier: Apache-2.0
// The property-file machinery: the property-file readers, ${name} expansion, the rules for
// property names and values, and the file and path helpers.

#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "expectations.h"
#include "utils.h"

namespace zelva_test {
namespace {

using android::base::WARNING;
using testing::ElementsAre;

// The error of |result|, for a result that should have failed.
template <typename T>
std::string ErrorOf(const android::base::Result<T>& result) {
    return result.ok() ? "(no error)" : result.error().message();
}

class PropertyFileTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(android::base::SetProperty("test.zelva.dir", dir_)); }

    // Writes |text| to the file |name| of the test's directory; its path.
    std::string Write(const std::string& name, const std::string& text) {
        const std::string path = dir_ + "/" + name;
        EXPECT_TRUE(android::base::WriteStringToFile(text, path));
        return path;
    }
    // The properties that loading |path| through |filter| adds to |map|.
    PropertyMap Load(const std::string& path, const char* filter = nullptr, PropertyMap map = {}) {
        EXPECT_TRUE(load_properties_from_file_without_se(path.c_str(), filter, &map)) << path;
        return map;
    }

    TemporaryDir tmp_;
    const std::string dir_ = tmp_.path;
    LogCapture log_;
};

TEST_F(PropertyFileTest, OnlyAsciiBlanksAroundNamesAndValuesAreTrimmed) {
    // Bytes 9 to 13 and 32 are blanks; a non-breaking space (0xa0) is text.
    const std::string path = Write("a.prop", " \t c \v= x = y \f\r\nn\xa0 = 1\xa0\n");
    EXPECT_EQ(Load(path), (PropertyMap{{"c", "x = y"}, {"n\xa0", "1\xa0"}}));
}

TEST_F(PropertyFileTest, HashStartsACommentOnlyAtTheStartOfALine) {
    EXPECT_EQ(Load(Write("a.prop", "# d=1\n \t#d=2\ne=#3\n")), (PropertyMap{{"e", "#3"}}));
}

TEST_F(PropertyFileTest, LinesWithoutEqualsSignAreSkippedAndAnyOtherLineIsAProperty) {
    // No control properties are singled out, "import" followed by "=" is a name, and the last
    // line needs no line feed.
    const std::string path = Write("a.prop", "noequals\n=v\nz=\nimport\nimport=2\nctl.s=x\nl=1");
    EXPECT_EQ(Load(path),
              (PropertyMap{{"", "v"}, {"ctl.s", "x"}, {"import", "2"}, {"l", "1"}, {"z", ""}}));
}

TEST_F(PropertyFileTest, LaterValueReplacesEarlierOneWithWarningAndMapIsAddedTo) {
    const std::string path = Write("a.prop", "a=1\na=2\nb=x\nb=x\np=new\nk=v\n");
    EXPECT_EQ(Load(path, nullptr, {{"p", "old"}, {"k", "v"}}),
              (PropertyMap{{"a", "2"}, {"b", "x"}, {"k", "v"}, {"p", "new"}}));
    // A line that repeats a value changes nothing and says nothing.
    EXPECT_THAT(
            LogRecords(log_, WARNING),
            ElementsAre(Warning("Overriding previous 'ro.' property 'a':'1' with new value '2'"),
                        Warning("Overriding previous 'ro.' property 'p':'old' with new value "
                                "'new'")));
}

TEST_F(PropertyFileTest, FilterTakesExactNameOrPrefixAndAnyFilterSkipsImports) {
    Write("deep.prop", "deep=1\n");
    const std::string path = Write("ro.prop",
                                   "ro.p.n=n\nro.px=x\nro.a=1\nro.ab=2\n"
                                   "import ${test.zelva.dir}/deep.prop\n");
    const PropertyMap all = {{"ro.a", "1"}, {"ro.ab", "2"}, {"ro.p.n", "n"}, {"ro.px", "x"}};
    PropertyMap with_import = all;
    with_import["deep"] = "1";
    struct Row {
        const char* filter;
        PropertyMap loaded;
    };
    for (const Row& row :
         std::vector<Row>{{.filter = "ro.p.*", .loaded = {{"ro.p.n", "n"}}},
                          {.filter = "ro.a", .loaded = {{"ro.a", "1"}}},
                          {.filter = "ro.a*", .loaded = {{"ro.a", "1"}, {"ro.ab", "2"}}},
                          {.filter = "*", .loaded = all},
                          {.filter = "", .loaded = with_import},
                          {.filter = nullptr, .loaded = with_import}}) {
        EXPECT_EQ(Load(path, row.filter), row.loaded) << (row.filter ? row.filter : "no filter");
    }
}

TEST_F(PropertyFileTest, ImportLoadsTheExpandedPathThroughItsOwnFilter) {
    Write("deep.prop", "deep=1\n");
    Write("leaf.prop", "ro.y.a=1\nro.z=2\nimport ${test.zelva.dir}/deep.prop\n");
    Write("mid.prop", "mid=1\nimport   ${test.zelva.dir}/leaf.prop \t ro.y.*\n");
    const std::string path = Write("top.prop", "import ${test.zelva.dir}/mid.prop\ntop=1\n");
    EXPECT_EQ(Load(path), (PropertyMap{{"mid", "1"}, {"ro.y.a", "1"}, {"top", "1"}}));
}

TEST_F(PropertyFileTest, ImportOfAbsentFileIsSilentAndOfUnloadableOneLogsErrors) {
    Write("leaf.prop", "leaf=1\n");
    // A tab doesn't end the file name, so the last import names no file.
    const std::string path = Write("top.prop",
                                   "import ${test.zelva.unset}/x\nimport /nonexistent/x\n"
                                   "import ${test.zelva.dir}\n"
                                   "import ${test.zelva.dir}/leaf.prop\tleaf\ntop=1\n");
    EXPECT_EQ(Load(path), (PropertyMap{{"top", "1"}}));
    EXPECT_THAT(
            LogRecords(log_, WARNING),
            ElementsAre(Error("Could not expand filename ': property 'test.zelva.unset' doesn't "
                              "exist while expanding '${test.zelva.unset}/x'"),
                        Warning("Couldn't load property file '" + dir_ +
                                "': Unable to read file contents: Is a directory"),
                        Error("expand filename load failed : " + dir_)));
}

TEST_F(PropertyFileTest, UnreadableFileFailsAndLeavesMapAsItWas) {
    PropertyMap map = {{"x", "1"}};
    EXPECT_FALSE(load_properties_from_file_without_se((dir_ + "/none").c_str(), nullptr, &map));
    EXPECT_EQ(map, (PropertyMap{{"x", "1"}}));
    EXPECT_THAT(LogRecords(log_, WARNING),
                ElementsAre(Warning("Couldn't load property file '" + dir_ +
                                    "/none': open() failed: No such file or directory")));
}

TEST_F(PropertyFileTest, LookupTakesFirstLineWhoseNameStartsWithTheOneAskedFor) {
    const std::string path = Write("a.prop",
                                   "a=1\r\na=2\n \t c \v= x = y\nctl.s=x\n# d=1\n"
                                   "n\xa0 = 1\xa0\nimport x=y\nl=1");
    struct Row {
        const char* name;
        std::string value;
    };
    for (const Row& row : std::vector<Row>{{.name = "a", .value = "1"},
                                           {.name = "c", .value = "x = y"},
                                           {.name = "ct", .value = "x"},
                                           {.name = "n", .value = "1\xa0"},
                                           {.name = "import", .value = "y"},
                                           {.name = "l", .value = "1"},
                                           {.name = "# d", .value = ""},
                                           {.name = "zz", .value = ""}}) {
        EXPECT_EQ(load_property_from_file(path.c_str(), row.name), row.value) << row.name;
    }
}

TEST(ExpandPropsTest, ReplacesEachReferenceOnceAndDollarDollarByDollar) {
    ASSERT_TRUE(android::base::SetProperty("test.zelva.x", "v"));
    ASSERT_TRUE(android::base::SetProperty("test.zelva.dollar", "a$b${test.zelva.x}"));
    struct Row {
        std::string source;
        std::string expanded;
    };
    for (const Row& row : std::vector<Row>{
                 {.source = "a$$b", .expanded = "a$b"},
                 {.source = "abc$", .expanded = "abc"},  // a lone '$' at the end is dropped
                 {.source = "/${test.zelva.x}/${test.zelva.x}$", .expanded = "/v/v"},
                 {.source = "${test.zelva.dollar}", .expanded = "a$b${test.zelva.x}"},
                 {.source = "${test.zelva.unset:-d}", .expanded = "d"},
                 {.source = "${test.zelva.x:-d}", .expanded = "v"}}) {
        const auto result = ExpandProps(row.source);
        ASSERT_TRUE(result.ok()) << row.source << ": " << result.error();
        EXPECT_EQ(*result, row.expanded) << row.source;
    }
}

TEST(ExpandPropsTest, RefusesUnsetPropertiesAndMalformedReferences) {
    struct Row {
        std::string source;
        std::string error;
    };
    for (const Row& row : std::vector<Row>{
                 {.source = "${test.zelva.unset}",
                  .error = "property 'test.zelva.unset' doesn't exist while expanding "
                           "'${test.zelva.unset}'"},
                 // ":-" splits only with a name before it and a default after it.
                 {.source = "${u:-}",
                 .error = "property 'u:-' doesn't exist while expanding '${u:-}'"},
                 {.source = "${:-b}",
                 .error = "property ':-b' doesn't exist while expanding '${:-b}'"},
                 {.source = "a/${u", .error = "unexpected end of string in 'a/${u', looking for }"},
                 {.source = "${}", .error = "invalid zero-length property name in '${}'"},
                 {.source = "$xy",
                 .error = "using deprecated syntax for specifying property 'xy', use ${name} "
                          "instead"}}) {
        EXPECT_EQ(ErrorOf(ExpandProps(row.source)), row.error) << row.source;
    }
}

TEST(PropertyNameTest, NameIsDotSeparatedPartsOfLettersDigitsAndFourMarks) {
    for (const std::string name : {"", ".", ".a", "a.", "a..b", "a.b.."}) {
        EXPECT_FALSE(IsLegalPropertyName(name)) << "'" << name << "'";
    }
    std::string allowed;  // in a name of any length
    for (int c = 0; c < 256; ++c) {
        if (IsLegalPropertyName(std::string(5000, 'a') + char(c) + "b")) allowed += char(c);
    }
    EXPECT_EQ(allowed, "-.0123456789:@ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz");
}

TEST(PropertyValueTest, ValueOutsideRoIsShorterThan92BytesAndEveryValueIsUtf8) {
    ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
    const std::string too_long = "Property value too long";
    const std::string not_utf8 = "Value is not a UTF8 encoded string";
    struct Row {
        std::string name;
        std::string value;
        std::optional<std::string> error;
    };
    for (const Row& row : std::vector<Row>{
                 // Only "ro." exempts; the 91/92-byte edge itself is in init_rules_test.cpp.
                 {.name = "ro", .value = std::string(92, 'v'), .error = too_long},
                 {.name = "x", .value = "caf\xc3\xa9 \xe2\x82\xac", .error = std::nullopt},
                 {.name = "x", .value = "\xc3\x28", .error = not_utf8},
                 {.name = "x", .value = "\xe2\x82", .error = not_utf8},  // cut off
                 {.name = "x", .value = std::string("a\0\xc3\x28", 4), .error = not_utf8}}) {
        const auto result = IsLegalPropertyValue(row.name, row.value);
        EXPECT_EQ(result.ok() ? std::nullopt : std::optional(result.error().message()), row.error)
                << row.name << " with " << row.value.size() << " bytes";
    }
    setlocale(LC_ALL, "C");
}

class FileHelperTest : public testing::Test {
  protected:
    void SetUp() override { old_umask_ = umask(0); }
    void TearDown() override { umask(old_umask_); }

    std::string Write(const std::string& name, const std::string& text) {
        const std::string path = dir_ + "/" + name;
        EXPECT_TRUE(android::base::WriteStringToFile(text, path));
        return path;
    }
    // Content and permission bits of |path|.
    FileState StateOf(const std::string& path) {
        std::string content;
        struct stat st = {};
        EXPECT_TRUE(android::base::ReadFileToString(path, &content) && stat(path.c_str(), &st) == 0)
                << path;
        return {content, st.st_uid, st.st_gid, st.st_mode & 07777};
    }
    // A file this process created.
    FileState Created(const std::string& content, mode_t mode) {
        return {content, getuid(), getgid(), mode};
    }

    mode_t old_umask_;
    TemporaryDir tmp_;
    const std::string dir_ = tmp_.path;
};

TEST_F(FileHelperTest, ReadFileReadsAllButRefusesFinalLinkAndDirectory) {
    const std::string big(3000, 'q');  // several read chunks
    const std::string target = Write("target", big), link = dir_ + "/link";
    std::filesystem::create_symlink(target, link);
    EXPECT_EQ(ReadFile(target).value_or("failed"), big);
    EXPECT_EQ(ReadFile(Write("empty", "")).value_or("failed"), "");
    EXPECT_EQ(ErrorOf(ReadFile(link)), "open() failed: Too many levels of symbolic links");
    EXPECT_EQ(ErrorOf(ReadFile(dir_)), "Unable to read file contents: Is a directory");
}

TEST_F(FileHelperTest, ReadWithOffsetGivesExactlyTheLengthAskedForPaddedWithZeros) {
    const std::string four = Write("four", "abcd"), link = dir_ + "/link";
    std::filesystem::create_symlink(Write("target", std::string(3000, 'q')), link);
    const std::string zeros(1020, '\0');
    struct Row {
        std::string path;
        int offset;
        int length;
        std::string content;
    };
    for (const Row& row : std::vector<Row>{
                 {.path = four, .offset = 0, .length = 10, .content = "abcd" + zeros.substr(0, 6)},
                 {.path = four, .offset = 2, .length = 2, .content = "cd"},
                 {.path = four, .offset = 10, .length = 3, .content = zeros.substr(0, 3)},
                 {.path = four, .offset = 0, .length = 1024, .content = "abcd" + zeros},
                 // A link is followed here.
                 {.path = link, .offset = 2990, .length = 10, .content = std::string(10, 'q')}}) {
        EXPECT_EQ(ReadFileWithOffset(row.path, row.offset, row.length).value_or("failed"),
                  row.content)
                << row.path << " at " << row.offset;
    }
    EXPECT_EQ(ErrorOf(ReadFileWithOffset(dir_, 0, 4)),
              "Unable to read file contents: Is a directory");
    EXPECT_EQ(ErrorOf(ReadFileWithOffset(dir_ + "/none", 0, 4)),
              "open() failed: No such file or directory");
    EXPECT_DEATH(ReadFileWithOffset(four, 0, 1025).ok(), "overflow");
}

TEST_F(FileHelperTest, FailedReadWithOffsetStillGivesZerosButFailedSeekGivesNothing) {
    android::base::unique_fd write_only(open(Write("four", "abcd").c_str(), O_WRONLY | O_CLOEXEC));
    std::string unread = "stale", unseeked = "stale";
    LogCapture log;
    EXPECT_FALSE(ReadFdToStringWithOffset(write_only.get(), &unread, 0, 3));
    EXPECT_FALSE(ReadFdToStringWithOffset(-1, &unseeked, 0, 3));
    EXPECT_EQ(unread, std::string(3, '\0'));
    EXPECT_EQ(unseeked, "");
    EXPECT_THAT(LogRecords(log), ElementsAre(Error("lseek() failed")));
}

TEST_F(FileHelperTest, WriteStringToFileFollowsFinalLinkOnlyWhenTold) {
    const std::string target = Write("target", "old"), link = dir_ + "/link";
    std::filesystem::create_symlink(target, link);
    EXPECT_FALSE(WriteStringToFile("x", link));
    EXPECT_TRUE(WriteStringToFile("through\n", link, true));
    EXPECT_TRUE(WriteStringToFile("", dir_ + "/new"));
    EXPECT_EQ(StateOf(target), Created("through\n", 0666));
    EXPECT_EQ(StateOf(dir_ + "/new"), Created("", 0666));
    // Nothing to write succeeds even on a bad descriptor.
    EXPECT_TRUE(::WriteStringToFd("", -1));
    EXPECT_FALSE(::WriteStringToFd("x", -1));
}

TEST_F(FileHelperTest, WriteFileCreatesPrivateFileOrTruncatesExistingOneKeepingItsMode) {
    const std::string existing = Write("existing", "a longer old content");
    ASSERT_TRUE(WriteFile(dir_ + "/fresh", "one=1\n").ok());
    ASSERT_TRUE(WriteFile(existing, "n\n").ok());
    EXPECT_EQ(StateOf(dir_ + "/fresh"), Created("one=1\n", 0600));
    EXPECT_EQ(StateOf(existing), Created("n\n", 0666));
}

TEST_F(FileHelperTest, WriteFileRefusesFinalLinkButWritesDeviceAsItStands) {
    const std::string link = dir_ + "/link";
    std::filesystem::create_symlink(Write("target", "old"), link);
    EXPECT_EQ(ErrorOf(WriteFile(link, "x")), "open() failed: Too many levels of symbolic links");
    EXPECT_TRUE(WriteFile("/dev/null", "x").ok());
    EXPECT_EQ(StateOf(dir_ + "/target"), Created("old", 0666));
}

TEST(PathTest, TrimPathAndParentDirectoryAlwaysStartAtRoot) {
    struct Row {
        std::string path;
        std::string trimmed;
        std::string parent;
    };
    for (const Row& row :
         std::vector<Row>{{.path = "a/b/", .trimmed = "/a/b", .parent = "/a/b"},
                          {.path = "a", .trimmed = "/a", .parent = "/"},
                          {.path = "/", .trimmed = "", .parent = "/"},
                          {.path = "/a/b/c", .trimmed = "/a/b/c", .parent = "/a/b"}}) {
        EXPECT_EQ(trimPath(row.path), row.trimmed) << row.path;
        EXPECT_EQ(getPathName(row.path), row.parent) << row.path;
    }
}

}  // namespace
}  // namespace zelva_test
