// The property-file machinery: the property-file readers, ${name} expansion, the rules for
// property names and values, and the file and path helpers.

#include <fcntl.h>
#include <locale.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "log_capture.h"
#include "utils.h"

namespace zelva_test {
namespace {

using android::base::ERROR;
using android::base::Result;
using android::base::unique_fd;
using android::base::WARNING;
using testing::ElementsAre;

class UtilsTest : public testing::Test {
  protected:
    std::string Put(const std::string& name, const std::string& content) {
        EXPECT_TRUE(android::base::WriteStringToFile(content, dir_ + "/" + name));
        return dir_ + "/" + name;
    }
    PropertyMap Load(const std::string& path, const char* filter, PropertyMap props = {}) {
        EXPECT_TRUE(load_properties_from_file_without_se(path.c_str(), filter, &props)) << path;
        return props;
    }
    static mode_t ModeOf(const std::string& path) {
        struct stat st = {};
        return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
    }
    TemporaryDir tmp_;
    const std::string dir_ = tmp_.path;
};

TEST_F(UtilsTest, LineSyntax) {
    const std::vector<std::pair<std::string, PropertyMap>> cases = {
            {"", {}}, {"a=1", {{"a", "1"}}}, {"a=1\r\nb=2\r\n\r\n", {{"a", "1"}, {"b", "2"}}},
            {" \t a \v= x = y \f\r\n", {{"a", "x = y"}}}, {"# c=1\n \t#d=2\ne=#3\n", {{"e", "#3"}}},
            {"noequals\n=v\nctl.start=x\nz=\n", {{"", "v"}, {"ctl.start", "x"}, {"z", ""}}},
            {"n\xa0 = 1\xa0\n", {{"n\xa0", "1\xa0"}}},  // only bytes 9-13 and 32 are blanks
            {"import\nimportx=1\nimport=2\n", {{"importx", "1"}, {"import", "2"}}},
    };
    for (const auto& [content, expected] : cases) {
        EXPECT_EQ(Load(Put("f.prop", content), nullptr), expected) << content;
    }
}

TEST_F(UtilsTest, LaterValueWinsAndOnlyChangesWarn) {
    LogCapture log;
    EXPECT_EQ(Load(Put("f.prop", "a=1\na=2\nb=x\nb=x\np=old\np=new\nkept=same\n"), nullptr,
                   {{"p", "old"}, {"kept", "same"}}),
              (PropertyMap{{"a", "2"}, {"b", "x"}, {"p", "new"}, {"kept", "same"}}));
    EXPECT_THAT(log.Messages(WARNING),
                ElementsAre("Overriding previous 'ro.' property 'a':'1' with new value '2'",
                            "Overriding previous 'ro.' property 'p':'old' with new value 'new'"));
}

TEST_F(UtilsTest, FiltersAndImportsUnderThem) {
    Put("other.prop", "ro.q=1\n");
    const std::string path =
            Put("f.prop", "ro.p.n=n\nro.px=x\nro.a=1\nro.ab=2\nimport " + dir_ + "/other.prop\n");
    const PropertyMap all = {{"ro.p.n", "n"}, {"ro.px", "x"}, {"ro.a", "1"}, {"ro.ab", "2"}};
    PropertyMap imported = all;
    imported["ro.q"] = "1";
    const std::vector<std::pair<const char*, PropertyMap>> cases = {
            {"ro.p.*", {{"ro.p.n", "n"}}}, {"ro.a", {{"ro.a", "1"}}},
            {"ro.a*", {{"ro.a", "1"}, {"ro.ab", "2"}}},
            {"*", all},  // any filter stops imports, even one that accepts every name
            {"", imported}, {nullptr, imported}};
    for (const auto& [filter, expected] : cases) EXPECT_EQ(Load(path, filter), expected) << filter;
}

TEST_F(UtilsTest, ImportsExpandNestAndReportFailures) {
    ASSERT_TRUE(android::base::SetProperty("zelva.test.dir", dir_));
    ASSERT_EQ(mkdir((dir_ + "/sub").c_str(), 0755), 0);
    Put("deep.prop", "deep=1\n");
    Put("leaf.prop", "ro.y.a=1\nro.z=2\nimport ${zelva.test.dir}/deep.prop\n");
    Put("mid.prop", "mid=1\nimport   ${zelva.test.dir}/leaf.prop \t ro.y.*\n");
    LogCapture log;
    EXPECT_EQ(Load(Put("top.prop", "import ${zelva.test.dir}/mid.prop\n"
                                   "import ${zelva.test.unset}/x.prop\n"
                                   "import /nonexistent/zelva/x.prop\n"
                                   "import ${zelva.test.dir}/sub\n"
                                   "import ${zelva.test.dir}/leaf.prop\tro.z\n"  // one tabbed name
                                   "top=1\n"),
                   nullptr),
              (PropertyMap{{"mid", "1"}, {"ro.y.a", "1"}, {"top", "1"}}));
    EXPECT_THAT(log.Messages(ERROR),
                ElementsAre("Could not expand filename ': property 'zelva.test.unset' doesn't "
                            "exist while expanding '${zelva.test.unset}/x.prop'",
                            "expand filename load failed : " + dir_ + "/sub"));
    EXPECT_THAT(log.Messages(WARNING),
                ElementsAre("Couldn't load property file '" + dir_ +
                            "/sub': Unable to read file contents: Is a directory"));
    android::base::SetProperty("zelva.test.dir", "");
}

TEST_F(UtilsTest, UnreadableFilesAndTiming) {
    const std::string none = dir_ + "/none", path = Put("f.prop", "a=1\n");
    PropertyMap props = {{"x", "1"}};
    LogCapture log;
    EXPECT_FALSE(load_properties_from_file_without_se(none.c_str(), nullptr, &props));
    EXPECT_EQ(props, (PropertyMap{{"x", "1"}}));
    EXPECT_EQ(load_property_from_file(none.c_str(), "x"), "");
    Load(path, nullptr);
    const std::string warning = "Couldn't load property file '" + none + "': open() failed: " +
                                strerror(ENOENT);
    EXPECT_THAT(log.Messages(WARNING), ElementsAre(warning, warning));
    EXPECT_THAT(log.Messages(android::base::VERBOSE),
                ElementsAre(testing::MatchesRegex("\\(Loading properties from " + path +
                                                  " took [0-9]+ms\\.\\)")));
}

TEST_F(UtilsTest, SinglePropertyIsFirstPrefixMatch) {
    const std::string path = Put("f.prop", "# ro.a=comment\nro.a\n  ro.ab \t=  1 = 2 \r\n"
                                           "ro.a=later\nimport x=y\nlast = z");
    const std::vector<std::pair<const char*, std::string>> cases = {
            {"ro.a", "1 = 2"}, {"ro.a=", "later"}, {"last", "z"},
            {"import", "y"},   {"# ro", ""},       {"ro.b", ""}};
    for (const auto& [name, expected] : cases) {
        LogCapture log;
        EXPECT_EQ(load_property_from_file(path.c_str(), name), expected) << name;
        EXPECT_THAT(log.Messages(WARNING),
                    ElementsAre("Loading property from " + path +
                                (expected.empty() ? " failed " : ": " + expected)));
    }
}

TEST(ExpandPropsTest, ExpandsReferencesAndReportsErrors) {
    ASSERT_TRUE(android::base::SetProperty("zelva.x", "v"));
    ASSERT_TRUE(android::base::SetProperty("zelva.dollar", "a$b${zelva.x}"));
    // source, expansion or "error: " and the error text
    const std::vector<std::pair<std::string, std::string>> cases = {
            {"", ""}, {"a$$b", "a$b"}, {"abc$", "abc"}, {"$$$", "$"},
            {"/${zelva.x}/${zelva.x}$", "/v/v"}, {"${zelva.dollar}", "a$b${zelva.x}"},  // one pass
            {"${zelva.unset:-d}", "d"}, {"${zelva.x:-d}", "v"}, {"${zelva.unset:-d:-e}", "d:-e"},
            {"${zelva.unset}",
             "error: property 'zelva.unset' doesn't exist while expanding '${zelva.unset}'"},
            {"${zelva.unset:-}",
             "error: property 'zelva.unset:-' doesn't exist while expanding '${zelva.unset:-}'"},
            {"${:-b}", "error: property ':-b' doesn't exist while expanding '${:-b}'"},
            {"a/${zelva.x", "error: unexpected end of string in 'a/${zelva.x', looking for }"},
            {"${}", "error: invalid zero-length property name in '${}'"},
            {"a$xy${zelva.x}", "error: using deprecated syntax for specifying property "
                               "'xy${zelva.x}', use ${name} instead"},
    };
    for (const auto& [src, expected] : cases) {
        auto result = ExpandProps(src);
        EXPECT_EQ(result.ok() ? *result : "error: " + result.error().message(), expected) << src;
    }
    android::base::SetProperty("zelva.x", "");
    android::base::SetProperty("zelva.dollar", "");
}

TEST(PropertyNameTest, LegalNames) {
    for (const char* name : {"", ".", ".a", "a.", "a..b", "a.b..", "a\xc3\xa9"}) {
        EXPECT_FALSE(IsLegalPropertyName(name)) << name;
    }
    EXPECT_TRUE(IsLegalPropertyName("a.b_c-d:f9@X"));
    EXPECT_TRUE(IsLegalPropertyName(std::string(5000, 'a')));  // no length limit
    for (int c = 0; c < 256; ++c) {
        const bool allowed = isascii(c) && (isalnum(c) || strchr("._-@:", c) != nullptr) && c;
        EXPECT_EQ(IsLegalPropertyName(std::string("a") + char(c) + "b"), allowed) << c;
    }
}

TEST(PropertyValueTest, LengthAndEncoding) {
    const std::string saved = setlocale(LC_ALL, nullptr);
    ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
    const std::string too_long = "Property value too long";
    const std::string not_utf8 = "Value is not a UTF8 encoded string";
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
            {"x.y", std::string(91, 'v'), ""}, {"x.y", std::string(92, 'v'), too_long},
            {"ro", std::string(92, 'v'), too_long}, {"ro.x", std::string(5000, 'v'), ""},
            {"x", std::string(92, '\xff'), too_long},  // length is checked first
            {"x", "caf\xc3\xa9 \xe2\x82\xac", ""}, {"x", "\xc3\x28", not_utf8},
            {"x", "ab\xc3", not_utf8},                       // cut-off sequence
            {"x", std::string("a\0\xc3\x28", 4), not_utf8},  // bytes after a NUL count too
    };
    for (const auto& [name, value, error] : cases) {
        auto result = IsLegalPropertyValue(name, value);
        EXPECT_EQ(result.ok() ? "" : result.error().message(), error) << name << " " << value;
    }
    setlocale(LC_ALL, saved.c_str());
}

TEST_F(UtilsTest, ReadFileRefusesAFinalSymlinkReadFileWithOffsetFollowsIt) {
    const std::string big(3000, 'q');  // several read chunks
    ASSERT_EQ(symlink(Put("target", big).c_str(), (dir_ + "/link").c_str()), 0);
    EXPECT_EQ(ReadFile(dir_ + "/target").value_or("?"), big);
    EXPECT_EQ(ReadFile(Put("empty", "")).value_or("?"), "");
    const std::vector<std::pair<Result<std::string>, std::string>> failures = {
            {ReadFile(dir_ + "/link"), "open() failed: Too many levels of symbolic links"},
            {ReadFile(dir_), "Unable to read file contents: Is a directory"},
            {ReadFileWithOffset(dir_, 0, 4), "Unable to read file contents: Is a directory"},
            {ReadFileWithOffset(dir_ + "/none", 0, 4), "open() failed: No such file or directory"}};
    for (const auto& [result, message] : failures) {
        EXPECT_EQ(result.ok() ? "ok" : result.error().message(), message);
    }
    EXPECT_EQ(ReadFileWithOffset(dir_ + "/link", 2990, 10).value_or("?"), std::string(10, 'q'));
}

TEST_F(UtilsTest, ReadFdToStringWithOffsetPadsWithZeros) {
    unique_fd fd(open(Put("four", "abcd").c_str(), O_RDONLY | O_CLOEXEC));
    const std::vector<std::tuple<int, int, std::string>> cases = {
            {0, 10, std::string("abcd\0\0\0\0\0\0", 10)}, {2, 2, "cd"},
            {10, 3, std::string(3, '\0')}, {0, 1024, "abcd" + std::string(1020, '\0')}};
    std::string content;
    for (const auto& [offset, length, expected] : cases) {
        content = "stale";
        EXPECT_TRUE(ReadFdToStringWithOffset(fd.get(), &content, offset, length)) << offset;
        EXPECT_EQ(content, expected) << offset << " " << length;
    }
    unique_fd write_only(open(Put("w", "abcd").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(ReadFdToStringWithOffset(write_only.get(), &content, 0, 3));
    EXPECT_EQ(content, std::string(3, '\0'));  // a failed read still yields |length| zeros
    EXPECT_DEATH(ReadFdToStringWithOffset(fd.get(), &content, 0, 1025), "overflow");
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    unique_fd read_end(fds[0]), write_end(fds[1]);
    LogCapture log;
    EXPECT_FALSE(ReadFdToStringWithOffset(read_end.get(), &content, 0, 3));
    EXPECT_EQ(content, "");
    EXPECT_TRUE(log.Has(android::base::ERROR, "lseek() failed"));
}

TEST_F(UtilsTest, WritesCreateTruncateAndMindSymlinks) {
    const mode_t old_umask = umask(0);
    ASSERT_TRUE(WriteFile(dir_ + "/fresh", "one=1\n").ok());
    EXPECT_EQ(ModeOf(dir_ + "/fresh"), 0600u);
    const std::string existing = Put("existing", "a much longer old content\n");
    ASSERT_EQ(chmod(existing.c_str(), 0644), 0);
    ASSERT_TRUE(WriteFile(existing, "new\n").ok());
    EXPECT_EQ(ReadFile(existing).value_or("?"), "new\n");
    EXPECT_EQ(ModeOf(existing), 0644u);  // an existing file keeps its mode

    ASSERT_EQ(symlink(existing.c_str(), (dir_ + "/link").c_str()), 0);
    EXPECT_EQ(WriteFile(dir_ + "/link", "x").error().code(), ELOOP);
    EXPECT_FALSE(WriteStringToFile("x", dir_ + "/link"));
    EXPECT_TRUE(WriteStringToFile("through\n", dir_ + "/link", true));
    EXPECT_EQ(ReadFile(existing).value_or("?"), "through\n");
    EXPECT_TRUE(WriteStringToFile("", dir_ + "/other"));
    EXPECT_EQ(ModeOf(dir_ + "/other"), 0666u);
    EXPECT_TRUE(::WriteStringToFd("", android::base::borrowed_fd(-1)));  // nothing to write
    EXPECT_FALSE(::WriteStringToFd("x", android::base::borrowed_fd(-1)));
    umask(old_umask);
}

TEST(PathTest, TrimPathAndGetPathName) {
    // path, trimPath, getPathName
    const std::vector<std::array<std::string, 3>> cases = {
            {"a/b/", "/a/b", "/a/b"}, {"/a", "/a", "/"},  {"", "", "/"},        {"/", "", "/"},
            {"a", "/a", "/"},         {"//", "/", "/"},   {"/a/b/c", "/a/b/c", "/a/b"},
            {"a/b", "/a/b", "/a"},    {"//x", "//x", "/"}};
    for (const auto& [path, trimmed, parent] : cases) {
        EXPECT_EQ(trimPath(path), trimmed) << path;
        EXPECT_EQ(getPathName(path), parent) << path;
    }
}

}  // namespace
}  // namespace zelva_test
