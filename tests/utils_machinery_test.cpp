// SPDX-License-Identifier: Apache-2.0
// The property-file machinery: the property-file readers, ${name} expansion, the rules for
// property names and values, and the file and path helpers.

#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>

#include <filesystem>

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "log_capture.h"
#include "utils.h"

namespace zelva_test {
namespace {

using android::base::Result;
using android::base::StringPrintf;
using namespace testing;

// The value of a result ("" for none), or "!" and its error text.
std::string Text(const Result<std::string>& r) { return r.ok() ? *r : "!" + r.error().message(); }
std::string Text(const Result<void>& r) { return r.ok() ? "" : "!" + r.error().message(); }

class UtilsTest : public Test {
  protected:
    std::string Put(const std::string& name, const std::string& text) {
        return android::base::WriteStringToFile(text, dir_ + "/" + name) ? dir_ + "/" + name : "";
    }
    // Loads |path| into |map|: "!" if that fails, then the properties as "name=value|...".
    std::string Load(const std::string& path, const char* filter, PropertyMap map = {}) {
        std::string s = load_properties_from_file_without_se(path.c_str(), filter, &map) ? "" : "!";
        for (const auto& [name, value] : map) s += name + "=" + value + "|";
        return s;
    }
    TemporaryDir tmp_;
    const std::string dir_ = tmp_.path;
};

// Both readers: syntax, filters, imports, overrides, the first match of a lookup, and the log.
TEST_F(UtilsTest, PropertyFileReaders) {
    ASSERT_TRUE(android::base::SetProperty("ut.dir", dir_));
    Put("deep.prop", "deep=1\n");
    Put("leaf.prop", "ro.y.a=1\nro.z=2\nimport ${ut.dir}/deep.prop\n");
    Put("mid.prop", "mid=1\nimport   ${ut.dir}/leaf.prop \t ro.y.*\n");  // a nested filter
    const std::string syntax = Put("s.prop", "a=1\r\na=2\r\n\r\nb=x\nb=x\n \t c \v= x = y \f\r\n"
                                             "# d=1\n \t#d=2\ne=#3\nnoequals\n=v\nctl.s=x\nz=\n"
                                             "n\xa0 = 1\xa0\nimport\nimport x=y\nimport=2\nl=1");
    const std::string tree = Put("tree.prop", "import ${ut.dir}/mid.prop\nimport ${u}/x\n"
                                              "import /nonexistent/x.prop\nimport ${ut.dir}\n"
                                              "import ${ut.dir}/leaf.prop\tro.z\ntop=1\n");
    const std::string ro = Put("ro.prop", "ro.p.n=n\nro.px=x\nro.a=1\nro.ab=2\n"
                                          "import ${ut.dir}/deep.prop\n");
    const std::string all_ro = "ro.a=1|ro.ab=2|ro.p.n=n|ro.px=x|", none = dir_ + "/none";
    auto find = [&](const char* name) { return load_property_from_file(syntax.c_str(), name); };
    LogCapture log;
    Check({{Load(Put("empty.prop", ""), nullptr), ""},
           // Only bytes 9-13 and 32 are blank, "#" only starts a line, the first "=" splits.
           {Load(syntax, nullptr), "=v|a=2|b=x|c=x = y|ctl.s=x|e=#3|import=2|l=1|n\xa0=1\xa0|z=|"},
           {Load(ro, "ro.p.*"), "ro.p.n=n|"}, {Load(ro, "ro.a"), "ro.a=1|"},
           {Load(ro, "ro.a*"), "ro.a=1|ro.ab=2|"}, {Load(ro, "*"), all_ro},  // no imports
           {Load(ro, ""), "deep=1|" + all_ro}, {Load(ro, nullptr), "deep=1|" + all_ro},
           {Load(tree, nullptr), "mid=1|ro.y.a=1|top=1|"},  // a tab ends no name
           // A filled map is added to, and a later line overrides its values too.
           {Load(Put("p.prop", "p=new\nk=v"), nullptr, {{"p", "old"}, {"k", "v"}}), "k=v|p=new|"},
           {Load(none, nullptr, {{"x", "1"}}), "!x=1|"},
           // The lookup takes the first line whose name starts with the one asked for.
           {find("a"), "1"}, {find("c"), "x = y"}, {find("ct"), "x"}, {find("n"), "1\xa0"},
           {find("import"), "y"}, {find("l"), "1"}, {find("# d"), ""}, {find("zz"), ""},
           {load_property_from_file(none.c_str(), "x"), ""}});
    const std::string cant = "Couldn't load property file '" + dir_;
    const std::string gone = cant + "/none': open() failed: No such file or directory";
    const std::string got = "Loading property from " + syntax;  // what each lookup logs
    EXPECT_THAT(log.Messages(android::base::WARNING),
                ElementsAre("Overriding previous 'ro.' property 'a':'1' with new value '2'",
                            cant + "': Unable to read file contents: Is a directory",
                            "Overriding previous 'ro.' property 'p':'old' with new value 'new'",
                            gone, got + ": 1", got + ": x = y", got + ": x", got + ": 1\xa0",
                            got + ": y", got + ": 1", got + " failed ", got + " failed ", gone));
    EXPECT_THAT(log.Messages(android::base::ERROR),
                ElementsAre("Could not expand filename ': property 'u' doesn't exist while "
                            "expanding '${u}/x'", "expand filename load failed : " + dir_));
    // One for each file the loader read: 10 loads and 4 nested ones.
    EXPECT_THAT(log.Messages(android::base::VERBOSE), AllOf(SizeIs(14), Each(MatchesRegex(
            "\\(Loading properties from " + dir_ + "/[a-z]+\\.prop took [0-9]+ms\\.\\)"))));
}

TEST(ExpandAndLegalityTest, ExpansionsNamesAndValues) {
    ASSERT_TRUE(android::base::SetProperty("ut.x", "v"));
    ASSERT_TRUE(android::base::SetProperty("ut.dollar", "a$b${ut.x}"));
    auto x = [](const char* src) { return Text(ExpandProps(src)); };
    Check({{x(""), ""}, {x("a$$b"), "a$b"}, {x("abc$"), "abc"}, {x("$$$"), "$"},
           {x("/${ut.x}/${ut.x}$"), "/v/v"}, {x("${ut.dollar}"), "a$b${ut.x}"},  // one pass
           {x("${ut.u:-d}"), "d"}, {x("${ut.x:-d}"), "v"}, {x("${ut.u:-d:-e}"), "d:-e"},
           {x("${ut.u}"), "!property 'ut.u' doesn't exist while expanding '${ut.u}'"},
           {x("${ut.u:-}"), "!property 'ut.u:-' doesn't exist while expanding '${ut.u:-}'"},
           {x("${:-b}"), "!property ':-b' doesn't exist while expanding '${:-b}'"},
           {x("a/${ut.x"), "!unexpected end of string in 'a/${ut.x', looking for }"},
           {x("${}"), "!invalid zero-length property name in '${}'"},
           {x("$xy"),
            "!using deprecated syntax for specifying property 'xy', use ${name} instead"}});

    EXPECT_THAT((std::vector<std::string>{"", ".", ".a", "a.", "a..b", "a.b.."}),
                Each(Not(Truly(IsLegalPropertyName))));
    std::string legal;  // the bytes allowed in a name of any length
    for (int c = 0; c < 256; ++c) {
        if (IsLegalPropertyName(std::string(5000, 'a') + char(c) + "b")) legal += char(c);
    }
    EXPECT_EQ(legal, "-.0123456789:@ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz");

    ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
    auto v = [](auto name, auto value) { return Text(IsLegalPropertyValue(name, value)); };
    const std::string v92(92, 'v'), too_long = "!Property value too long";
    const std::string not_utf8 = "!Value is not a UTF8 encoded string";
    Check({{v("x.y", std::string(91, 'v')), ""}, {v("x.y", v92), too_long},
           {v("ro", v92), too_long}, {v("ro.x", std::string(5000, 'v')), ""},
           {v("x", "caf\xc3\xa9 \xe2\x82\xac"), ""},
           {v("x", std::string(92, '\xff')), too_long},  // length is checked first
           {v("x", "\xc3\x28"), not_utf8}, {v("x", "\xe2\x82"), not_utf8},  // even cut off
           {v("x", std::string("a\0\xc3\x28", 4)), not_utf8}});  // bytes after a NUL count too
    setlocale(LC_ALL, "C");
}

TEST_F(UtilsTest, FileHelpers) {
    const mode_t old_umask = umask(0);
    const std::string big(3000, 'q'), link = dir_ + "/link", four = Put("four", "abcd");
    std::filesystem::create_symlink(Put("target", big), link);  // several read chunks
    auto read = [](const std::string& path) { return Text(ReadFile(path)); };
    auto at = [](auto path, int off, int len) { return Text(ReadFileWithOffset(path, off, len)); };
    EXPECT_DEATH(at(four, 0, 1025), "overflow");
    const std::string is_dir = "!Unable to read file contents: Is a directory", zeros(1020, '\0');
    Check({{read(dir_ + "/target"), big}, {read(Put("empty", "")), ""}, {read(dir_), is_dir},
           {read(link), "!open() failed: Too many levels of symbolic links"},
           {at(dir_, 0, 4), is_dir}, {at(link, 2990, 10), std::string(10, 'q')},
           {at(dir_ + "/none", 0, 4), "!open() failed: No such file or directory"},
           {at(four, 0, 10), "abcd" + zeros.substr(0, 6)}, {at(four, 2, 2), "cd"},
           {at(four, 10, 3), zeros.substr(0, 3)}, {at(four, 0, 1024), "abcd" + zeros}});
    android::base::unique_fd write_only(open(four.c_str(), O_WRONLY | O_CLOEXEC));
    std::string failed = "stale", no_seek = "stale";  // a failed read still yields zeros
    LogCapture log;
    EXPECT_FALSE(ReadFdToStringWithOffset(write_only.get(), &failed, 0, 3));
    EXPECT_FALSE(ReadFdToStringWithOffset(-1, &no_seek, 0, 3));  // lseek() fails
    EXPECT_EQ(failed + "|" + no_seek, zeros.substr(0, 3) + "|");
    EXPECT_THAT(log.Messages(android::base::ERROR), ElementsAre("lseek() failed"));

    auto state = [&](const std::string& path) {  // the mode in octal, then the content
        return StringPrintf("%o ", int(std::filesystem::status(path).permissions())) + read(path);
    };
    // WriteStringToFile follows a final symbolic link only when told to; "" is nothing to write.
    EXPECT_THAT((std::vector<bool>{WriteStringToFile("x", link), ::WriteStringToFd("", -1),
                                   WriteStringToFile("through\n", link, true),
                                   WriteStringToFile("", dir_ + "/o"), ::WriteStringToFd("x", -1)}),
                ElementsAre(false, true, true, true, false));
    Check({{Text(WriteFile(dir_ + "/fresh", "one=1\n")), ""}, {Text(WriteFile(four, "n\n")), ""},
           {Text(WriteFile(link, "x")), "!open() failed: Too many levels of symbolic links"},
           {Text(WriteFile("/dev/null", "x")), ""},  // a device is written as it stands
           {state(dir_ + "/fresh"), "600 one=1\n"},
           {state(four), "666 n\n"},  // truncated; an existing file keeps its mode
           {state(dir_ + "/o"), "666 "}, {read(dir_ + "/target"), "through\n"}});
    umask(old_umask);
    auto path = [](const char* path) { return trimPath(path) + " " + getPathName(path); };
    Check({{path("a/b/"), "/a/b /a/b"}, {path("/a"), "/a /"}, {path(""), " /"},
           {path("/"), " /"}, {path("a"), "/a /"}, {path("//"), "/ /"},
           {path("/a/b/c"), "/a/b/c /a/b"}, {path("a/b"), "/a/b /a"}, {path("//x"), "//x /"}});
}

}  // namespace
}  // namespace zelva_test
