// SPDX-License-Identifier: Apache-2.0
// extprop-sim stopped mid-boot by Ctrl-C, SIGTERM or SIGKILL: its sandbox child dies with it,
// and no process, mount or scratch directory stays behind.

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

namespace fs = std::filesystem;
using android::base::ReadFileToString;
using std::chrono::steady_clock;

// "R", "S", "Z"...: the state of a process, or "" when it is gone.
std::string StateOf(pid_t pid) {
    std::string stat;
    if (!ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &stat)) return "";
    const size_t end = stat.rfind(')');
    return end == std::string::npos ? "" : stat.substr(end + 2, 1);
}

pid_t ParentOf(pid_t pid) {
    std::string stat;
    if (!ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &stat)) return 0;
    const size_t end = stat.rfind(')');
    return end == std::string::npos ? 0 : atoi(stat.c_str() + end + 4);
}

// Every living process below |root|.
std::set<pid_t> Descendants(pid_t root) {
    std::set<pid_t> found{root};
    for (bool grew = true; grew;) {
        grew = false;
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const pid_t pid = atoi(entry.path().filename().c_str());
            if (pid > 0 && found.count(pid) == 0 && found.count(ParentOf(pid)) != 0) {
                grew = found.insert(pid).second;
            }
        }
    }
    found.erase(root);
    return found;
}

// Polls |done| for up to ten seconds.
template <typename Predicate>
bool Eventually(Predicate done) {
    const auto deadline = steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

struct Stop {
    const char* name;
    int signal;
    bool whole_group;  // as Ctrl-C: the terminal signals the tool's whole process group
};

void PrintTo(const Stop& stop, std::ostream* os) { *os << stop.name; }

class SignalTest : public testing::TestWithParam<Stop> {};

TEST_P(SignalTest, ChildAndScratchGoWithTheTool) {
    REQUIRE_SANDBOX();
    TemporaryDir tmp, work;
    const std::string script = std::string(work.path) + "/script";
    ASSERT_TRUE(android::base::WriteStringToFile("write /data/started 1\nsleep 60000\n", script));
    const auto mounts_before = Mounts();

    // A tree of the test's own, which an unprivileged run may write to.
    const std::string root = std::string(work.path) + "/tree";
    std::string error;
    ASSERT_TRUE(sandbox::DeviceTree().Dir("/data").Materialize(root, &error)) << error;
    const std::string tmpdir = std::string("TMPDIR=") + tmp.path;
    std::vector<const char*> argv = {ZELVA_SIMULATOR_PATH, "boot", "--root", root.c_str(),
                                     "--script", script.c_str(), nullptr};
    std::vector<const char*> envp = {tmpdir.c_str(), nullptr};
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    pid_t tool = 0;
    ASSERT_EQ(posix_spawn(&tool, argv[0], nullptr, &attr, const_cast<char**>(argv.data()),
                          const_cast<char**>(envp.data())),
              0);
    posix_spawnattr_destroy(&attr);

    // Mid-boot: the script's first step has written into the scratch's upper layer.
    auto started = [&] {
        for (const std::string& name : {std::string("upper"), std::string("tree")}) {
            std::error_code ec;
            for (const auto& entry : fs::directory_iterator(tmp.path, ec)) {
                if (fs::exists(entry.path() / name / "data/started")) return true;
            }
        }
        return false;
    };
    ASSERT_TRUE(Eventually(started));
    const std::set<pid_t> children = Descendants(tool);
    EXPECT_FALSE(children.empty());

    ASSERT_EQ(kill(GetParam().whole_group ? -tool : tool, GetParam().signal), 0);
    int status = 0;
    ASSERT_EQ(waitpid(tool, &status, 0), tool);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam().signal) << status;

    EXPECT_TRUE(Eventually([&] {
        for (pid_t pid : children) {
            const std::string state = StateOf(pid);
            if (!state.empty() && state != "Z") return false;
        }
        return true;
    })) << "a sandbox process outlived the tool";
    EXPECT_TRUE(Eventually([&] { return fs::is_empty(tmp.path); }))
            << "scratch left in " << tmp.path;
    EXPECT_EQ(Mounts(), mounts_before);
}

INSTANTIATE_TEST_SUITE_P(Stops, SignalTest,
                         testing::Values(Stop{.name = "CtrlC", .signal = SIGINT, .whole_group = true},
                                         Stop{.name = "Term", .signal = SIGTERM, .whole_group = false},
                                         Stop{.name = "Kill", .signal = SIGKILL, .whole_group = false}),
                         [](const testing::TestParamInfo<Stop>& info) { return info.param.name; });

}  // namespace
}  // namespace zelva_test
