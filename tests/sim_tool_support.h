// SPDX-License-Identifier: Apache-2.0
// Running extprop-sim on a device tree built in the test, and reading what it
// reports: the --json document, and the failed assertions it prints on stderr.
#pragma once

#include <sys/wait.h>

#include <ostream>
#include <sstream>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "test_support.h"

namespace zelva_test {

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs "extprop-sim ARGS..." in |dir|; each argument is passed as it is.
inline ToolRun RunTool(const std::string& dir, const std::vector<std::string>& args) {
    TemporaryFile out, err;
    std::string command = "cd '" + dir + "' && " ZELVA_SIMULATOR_PATH;
    for (const std::string& arg : args) {
        command += " '" + android::base::StringReplace(arg, "'", "'\\''", true) + "'";
    }
    command += std::string(" >") + out.path + " 2>" + err.path;
    ToolRun run;
    const int status = system(command.c_str());
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    android::base::ReadFileToString(out.path, &run.out);
    android::base::ReadFileToString(err.path, &run.err);
    return run;
}

// A script written to a file of its own directory (where an ota step's
// relative DIR is looked up).
class ScriptFile {
  public:
    explicit ScriptFile(const std::string& text) { android::base::WriteStringToFile(text, path()); }
    std::string dir() const { return dir_.path; }
    std::string path() const { return dir() + "/boot.script"; }

  private:
    TemporaryDir dir_;
};

// Boots |tree| (a directory) with |script| and the --json report.
inline ToolRun BootScript(const std::string& tree, const ScriptFile& script) {
    return RunTool(script.dir(), {"boot", "--json", "--root", tree, "--lib", LibraryPath(),
                                  "--script", script.path()});
}

// One failed assertion as the tool prints it.
struct Failure {
    std::string step;  // "line 3: expect-prop a.b two"
    std::string expected;
    std::string seen;
    bool operator==(const Failure& other) const {
        return step == other.step && expected == other.expected && seen == other.seen;
    }
};

inline void PrintTo(const Failure& f, std::ostream* os) {
    *os << "{" << f.step << " | expected: " << f.expected << " | seen: " << f.seen << "}";
}

inline std::vector<Failure> Failures(const std::string& err) {
    std::vector<Failure> failures;
    std::istringstream in(err);
    std::string line;
    constexpr char kHead[] = "extprop-sim: failed at ";
    while (std::getline(in, line)) {
        if (android::base::StartsWith(line, kHead)) {
            failures.push_back({line.substr(strlen(kHead)), "", ""});
        } else if (!failures.empty() && android::base::StartsWith(line, "  expected: ")) {
            failures.back().expected = line.substr(12);
        } else if (!failures.empty() && android::base::StartsWith(line, "  seen: ")) {
            failures.back().seen = line.substr(8);
        }
    }
    return failures;
}

// The report's steps as "boot N: step".
inline std::vector<std::string> StepsByBoot(const nlohmann::json& report) {
    std::vector<std::string> steps;
    for (const auto& step : report["steps"]) {
        steps.push_back("boot " + std::to_string(step["boot"].get<int>()) + ": " +
                        step["step"].get<std::string>());
    }
    return steps;
}

// The steps of the records whose message is |message|.
inline std::vector<int> StepsLogging(const nlohmann::json& report, const std::string& message) {
    std::vector<int> steps;
    for (const auto& record : report["log"]) {
        if (record["message"] == message) steps.push_back(record["step"].get<int>());
    }
    return steps;
}

// The tool on trees built in the test; they need the device-root sandbox.
class SimToolTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string why;
        SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    }

    // The tree on disk, for the tool's --root.
    std::string Tree(const sandbox::DeviceTree& tree) {
        std::string error;
        root_ = sandbox::ScratchRoot::Create(tree, &error);
        EXPECT_NE(root_, nullptr) << error;
        return root_ ? root_->path() : "";
    }

  private:
    std::unique_ptr<sandbox::ScratchRoot> root_;
};

}  // namespace zelva_test
