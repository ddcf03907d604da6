// SPDX-License-Identifier: Apache-2.0
// extprop-sim's command line: one-line errors with exit status 2, --help per command,
// --opt=value, the older tree arguments still accepted with a warning, and the README's
// usage naming the options each command's --help names.

#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "simulator_run.h"

namespace zelva_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::vector<std::string> kCommands = {"boot", "explain", "diff", "check", "state", "lint", "parse"};

TEST(CliTest, BadUsageIsOneLineAndExitsTwo) {
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
                 {"frobnicate"},
                 {"boot", "--root", "alder-eu", "--frobnicate"},
                 {"boot", "--root="},
                 {"boot", "--root"},
                 {"explain", "--root", "alder-eu"},
                 {"explain", "a.b", "c.d", "--root", "alder-eu"},
                 {"diff", "alder-eu"},
                 {"diff", "alder-eu", "birch-cn", "--root", "alder-eu"},
                 {"lint"},
                 {"lint", "--root", "/no/such/tree"},
                 {"parse"},
                 {"parse", "a.prop", "--prop", "novalue"},
         }) {
        const SimulatorRun run = RunSimulator(args);
        const std::string shown = android::base::Join(args, ' ');
        EXPECT_EQ(run.status, 2) << shown;
        EXPECT_THAT(run.err, MatchesRegex("extprop-sim: [^\n]*\n")) << shown;
        EXPECT_THAT(run.out, IsEmpty()) << shown;
    }
}

TEST(CliTest, EachCommandHasItsOwnHelpAndTheProgramItsVersion) {
    for (const std::string& command : kCommands) {
        const SimulatorRun run = RunSimulator({command, "--help"});
        EXPECT_EQ(run.status, 0) << command;
        EXPECT_THAT(run.out, HasSubstr("Usage: extprop-sim " + command + " [OPTIONS]")) << command;
        EXPECT_THAT(run.out, HasSubstr("--json")) << command;
    }
    const SimulatorRun top = RunSimulator({"--help"});
    EXPECT_EQ(top.status, 0);
    for (const std::string& command : kCommands) {
        EXPECT_THAT(top.out, HasSubstr("\n  extprop-sim " + command + " ")) << command;
    }
    const SimulatorRun version = RunSimulator({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_THAT(version.out, MatchesRegex("extprop-sim [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(CliTest, OptionValueMayFollowAnEqualsSign) {
    TemporaryDir dir;
    ASSERT_TRUE(android::base::WriteStringToFile("a.x=1\nb.y=2\n",
                                                 std::string(dir.path) + "/build.prop"));
    const SimulatorRun joined = RunSimulator({"parse", "build.prop", "--filter=a.*"}, dir.path);
    const SimulatorRun apart = RunSimulator({"parse", "build.prop", "--filter", "a.*"}, dir.path);
    EXPECT_EQ(joined.status, 0) << joined.err;
    EXPECT_EQ(joined.out, "a.x=1\n");
    EXPECT_EQ(apart.out, joined.out);
}

TEST(CliTest, TreeAsAnArgumentStillWorksWithOneDeprecationLine) {
    std::string why;
    SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    struct Row {
        std::vector<std::string> old_args;
        std::vector<std::string> new_args;
    };
    for (const Row& row : std::vector<Row>{
                 {{"lint", "birch-cn"}, {"lint", "--root", "birch-cn"}},
                 {{"diff", "birch-cn", "alder-eu"},
                  {"diff", "--root", "birch-cn", "--root-b", "alder-eu"}},
         }) {
        const SimulatorRun old_run = RunSimulator(row.old_args);
        const SimulatorRun new_run = RunSimulator(row.new_args);
        EXPECT_EQ(old_run.status, 1) << old_run.err;
        EXPECT_EQ(old_run.status, new_run.status);
        EXPECT_EQ(old_run.out, new_run.out);
        const auto deprecated = [](const std::string& err) {
            std::vector<std::string> lines;
            for (const std::string& line : android::base::Split(err, "\n")) {
                if (line.find("deprecated") != std::string::npos) lines.push_back(line);
            }
            return lines;
        };
        EXPECT_THAT(deprecated(old_run.err),
                    testing::ElementsAre(HasSubstr("use " + row.new_args[0] + " --root ")))
                << old_run.err;
        EXPECT_THAT(deprecated(new_run.err), IsEmpty());
    }
}

// The options named in |text|: --long ones, and -v.
std::set<std::string> OptionNames(const std::string& text) {
    const auto word = [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; };
    std::set<std::string> names;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '-' || (i > 0 && word(text[i - 1]))) continue;
        size_t end = i + 1;
        while (end < text.size() && word(text[end])) ++end;
        const std::string name = text.substr(i, end - i);
        if (name == "-v" || (name.size() > 2 && name[1] == '-' && name[2] != '-')) {
            names.insert(name);
        }
        i = end;
    }
    return names;
}

// Each command's synopsis in the README's "Command line" block.
std::map<std::string, std::string> ReadmeSynopses() {
    std::string readme;
    android::base::ReadFileToString(ZELVA_SOURCE_DIR "/README.md", &readme);
    const size_t section = readme.find("### Command line");
    const size_t begin = readme.find("```\n", section);
    const size_t end = readme.find("```\n", begin + 4);
    std::map<std::string, std::string> synopses;
    std::string command;
    if (section == std::string::npos || end == std::string::npos) return synopses;
    for (const std::string& line :
         android::base::Split(readme.substr(begin + 4, end - begin - 4), "\n")) {
        if (android::base::StartsWith(line, "extprop-sim ")) {
            command = line.substr(12, line.find(' ', 12) - 12);
        } else if (line.empty() || line[0] != ' ') {
            command.clear();
        }
        if (!command.empty()) synopses[command] += line + "\n";
    }
    return synopses;
}

TEST(CliTest, ReadmeUsageNamesTheOptionsOfEachCommandsHelp) {
    const std::map<std::string, std::string> synopses = ReadmeSynopses();
    for (const std::string& command : kCommands) {
        const SimulatorRun help = RunSimulator({command, "--help"});
        // The options list of --help: from "Options:" to the first blank line.
        const size_t begin = help.out.find("Options:\n");
        const std::string options = help.out.substr(begin, help.out.find("\n\n", begin) - begin);
        std::set<std::string> in_help = OptionNames(options);
        in_help.erase("--help");
        const auto synopsis = synopses.find(command);
        ASSERT_NE(synopsis, synopses.end()) << command << " is missing from README's usage";
        EXPECT_EQ(OptionNames(synopsis->second), in_help) << command;
    }
}

}  // namespace
}  // namespace zelva_test
