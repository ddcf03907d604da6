// SPDX-License-Identifier: Apache-2.0
// The device root as a boundary: what the child can reach and do, what a hostile tree can't
// break, and that nothing of a run stays behind on the machine.

#include <dirent.h>
#include <net/if.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "test_support.h"

extern "C" void __sanitizer_print_stack_trace() __attribute__((weak));
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace zelva_test {
namespace {

namespace fs = std::filesystem;
using android::base::ReadFileToString;
using android::base::WriteStringToFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

std::vector<std::string> Names(const std::string& dir) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec)) names.push_back(entry.path().filename());
    return names;
}

// The child runs in user, PID, network and UTS namespaces of its own, cannot gain privileges,
// keeps only the capabilities the library's operations need, and cannot reach the machine's
// files.
TEST(SandboxBoundaryTest, ChildIsConfinedToItsNamespacesRootAndCapabilities) {
    TemporaryDir host;
    const std::string sentinel = std::string(host.path) + "/sentinel";
    ASSERT_TRUE(WriteStringToFile("host secret", sentinel));
    utsname before;
    uname(&before);

    const sandbox::Outcome outcome = RunInDevice(sandbox::DeviceTree().Dir("/data"), [&](auto& ctx) {
        ctx.Note("pid", std::to_string(getpid()));
        ctx.Note("no_new_privs", std::to_string(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0)));
        std::string bounded;
        for (int cap = 0; prctl(PR_CAPBSET_READ, cap, 0, 0, 0) >= 0; ++cap) {
            if (prctl(PR_CAPBSET_READ, cap, 0, 0, 0) == 1) bounded += std::to_string(cap) + " ";
        }
        ctx.Note("bounding set", bounded);
        std::string interfaces;
        if (struct if_nameindex* names = if_nameindex()) {
            for (struct if_nameindex* n = names; n->if_name != nullptr; ++n) interfaces += n->if_name;
            if_freenameindex(names);
        }
        ctx.Note("interfaces", interfaces);
        ctx.Note("sethostname", sethostname("device", 6) == 0 ? "ok" : strerror(errno));
        std::string content;
        ctx.Note("sentinel", ReadFileToString(sentinel, &content) ? content : strerror(errno));
        ctx.Note("above root", Names("/..") == Names("/") ? "the root itself" : "escaped");
        // Its CAP_SYS_ADMIN is its user namespace's, even when the tool runs as root: a file
        // system only the machine's root may mount stays out of reach.
        ctx.Note("mount tracefs",
                 mount("none", "/data", "tracefs", 0, nullptr) == 0 ? "mounted" : strerror(errno));
    });
    ASSERT_DEVICE_RAN(outcome);
    // CAP_CHOWN 0, CAP_DAC_OVERRIDE 1, CAP_DAC_READ_SEARCH 2, CAP_FOWNER 3, CAP_FSETID 4,
    // CAP_SYS_ADMIN 21.
    EXPECT_THAT(outcome.notes,
                UnorderedElementsAre(Pair("pid", "2"), Pair("no_new_privs", "1"),
                                     Pair("bounding set", "0 1 2 3 4 21 "), Pair("interfaces", "lo"),
                                     Pair("sethostname", "ok"),
                                     Pair("sentinel", strerror(ENOENT)),
                                     Pair("above root", "the root itself"),
                                     Pair("mount tracefs", strerror(EPERM))));
    utsname after;
    uname(&after);
    EXPECT_STREQ(after.nodename, before.nodename);
}

// Builds on disk a tree no sandbox could copy: a FIFO, a socket, an unreadable directory, a
// 0555 one, given through a symbolic link. The boot never touches those, so they don't matter:
// the tree is a read-only layer, what the function writes lands in the scratch's upper layer,
// and the tree on disk is left exactly as it was.
TEST(SandboxBoundaryTest, HostileTreeIsALowerLayerTheRunNeverChanges) {
    REQUIRE_SANDBOX();
    std::string why;
    TemporaryDir host;
    const std::string tree = std::string(host.path) + "/tree";
    sandbox::DeviceTree()
            .File("/my_carrier/build.prop", "ro.carrier=x\n")
            .File("/data/old", "old")
            .Fifo("/my_carrier/fifo")
            .Socket("/my_carrier/socket")
            .File("/locked/secret", "s")
            .Dir("/locked", 0)
            .Dir("/readonly", 0555)
            .Materialize(tree, &why);
    ASSERT_EQ(why, "");
    // Opened again before the directory is removed, however the test ends.
    const std::unique_ptr<const char, void (*)(const char*)> unlock(
            host.path, [](const char* dir) { chmod((std::string(dir) + "/tree/locked").c_str(), 0755); });
    const std::string link = std::string(host.path) + "/link";
    ASSERT_EQ(symlink(tree.c_str(), link.c_str()), 0);
    const auto tree_before = Snapshot(tree);
    const auto mounts_before = Mounts();

    auto root = sandbox::ScratchRoot::Create(sandbox::DeviceTree().CopyFrom(link), &why);
    ASSERT_TRUE(root) << why;
    EXPECT_EQ(root->fallback(), "") << "this kernel refuses the overlay";
    const sandbox::Outcome outcome = RunInDevice(*root, [](sandbox::Context& ctx) {
        std::string content;
        ReadFileToString("/my_carrier/build.prop", &content);
        ctx.Note("read", content);
        WriteStringToFile("new", "/data/new");
        unlink("/data/old");
        ctx.Note("readonly dir", mkdir("/readonly/sub", 0755) == 0 ? "written" : "refused");
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(outcome.notes, UnorderedElementsAre(Pair("read", "ro.carrier=x\n"),
                                                    Pair("readonly dir", "written")));
    EXPECT_EQ(outcome.tree.at("/my_carrier/fifo").type, 'p');
    EXPECT_FALSE(outcome.Exists("/data/old"));

    EXPECT_EQ(Snapshot(tree), tree_before);
    EXPECT_EQ(Mounts(), mounts_before);
    std::string written;
    EXPECT_TRUE(ReadFileToString(root->changes() + "/data/new", &written));
    EXPECT_EQ(written, "new");
    EXPECT_EQ(root->HostPath("/data/new"), root->changes() + "/data/new");
    EXPECT_EQ(root->HostPath("/my_carrier/build.prop"), tree + "/my_carrier/build.prop");
    EXPECT_FALSE(fs::exists(root->HostPath("/data/old")));
}

// Where the kernel refuses the overlay (here: the scratch space lies inside the tree, and
// overlapping layers are refused), the tree is copied instead, without the scratch space, and
// the outcome says so in one line.
TEST(SandboxBoundaryTest, RefusedOverlayFallsBackToACopyAndSaysSo) {
    REQUIRE_SANDBOX();
    std::string why;
    TemporaryDir host;
    const std::string tree = host.path;
    ASSERT_TRUE(WriteStringToFile("ro.a=1\n", tree + "/build.prop"));
    ASSERT_EQ(mkdir((tree + "/tmp").c_str(), 0755), 0);
    const char* saved = getenv("TMPDIR");
    const std::string saved_tmpdir = saved != nullptr ? saved : "";
    setenv("TMPDIR", (tree + "/tmp").c_str(), 1);
    auto root = sandbox::ScratchRoot::Create(sandbox::DeviceTree().CopyFrom(tree), &why);
    saved != nullptr ? setenv("TMPDIR", saved_tmpdir.c_str(), 1) : unsetenv("TMPDIR");
    ASSERT_TRUE(root) << why;

    const sandbox::Outcome outcome = RunInDevice(*root, [](sandbox::Context& ctx) {
        std::string content;
        ReadFileToString("/build.prop", &content);
        ctx.Note("read", content);
        ctx.Note("scratch", Names("/tmp").empty() ? "not copied" : "copied");
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(outcome.fallback, testing::StartsWith("overlay refused (mount overlay: "));
    EXPECT_THAT(outcome.fallback, testing::EndsWith("): the tree is copied instead"));
    EXPECT_EQ(outcome.fallback.find('\n'), std::string::npos);
    EXPECT_THAT(outcome.notes, UnorderedElementsAre(Pair("read", "ro.a=1\n"),
                                                    Pair("scratch", "not copied")));
    EXPECT_EQ(root->changes(), root->path());
}

// Scratch directories go to TMPDIR; one whose owner died without removing it (and whose
// watcher died too) is removed by the next one created, unless it was kept on purpose.
TEST(SandboxBoundaryTest, ScratchHonoursTmpdirAndStaleOnesAreSwept) {
    TemporaryDir tmp;
    const std::string dir = tmp.path;
    const pid_t dead = fork();
    if (dead == 0) _exit(0);
    waitpid(dead, nullptr, 0);
    const std::string stale = "zelva-root-" + std::to_string(dead) + "-1-abcdef";
    const std::string kept = "zelva-root-" + std::to_string(dead) + "-1-kept00";
    const std::string reused = "zelva-root-" + std::to_string(getpid()) + "-1-reused";
    for (const std::string& name : {stale, kept, reused}) {
        ASSERT_EQ(mkdir((dir + "/" + name).c_str(), 0755), 0);
        ASSERT_EQ(mkdir((dir + "/" + name + "/upper").c_str(), 0), 0);
    }
    ASSERT_TRUE(WriteStringToFile("", dir + "/" + kept + "/kept"));

    const char* saved = getenv("TMPDIR");
    const std::string saved_tmpdir = saved != nullptr ? saved : "";
    setenv("TMPDIR", dir.c_str(), 1);
    std::string error;
    auto root = sandbox::ScratchRoot::Create(sandbox::DeviceTree(), &error);
    saved != nullptr ? setenv("TMPDIR", saved_tmpdir.c_str(), 1) : unsetenv("TMPDIR");
    ASSERT_TRUE(root) << error;
    EXPECT_EQ(fs::path(root->layout().scratch).parent_path(), dir);
    // This process's own id with another start time is a dead owner whose id was reused.
    EXPECT_THAT(Names(dir), UnorderedElementsAre(kept, fs::path(root->layout().scratch).filename()));
    root.reset();
    EXPECT_THAT(Names(dir), ElementsAre(kept));
}

void* volatile leaked;

// In sanitizer builds the child runs LeakSanitizer before it ends, and its reports from inside
// the root are symbolised.
TEST(SandboxBoundaryTest, SanitizersSeeIntoTheChild) {
    if (__lsan_do_recoverable_leak_check == nullptr || __sanitizer_print_stack_trace == nullptr) {
        GTEST_SKIP() << "not a LeakSanitizer build";
    }
    const sandbox::Outcome leaking = RunInDevice(sandbox::DeviceTree(), [](auto&) {
        leaked = malloc(64);
        leaked = nullptr;
    });
    SKIP_WITHOUT_SANDBOX(leaking.unavailable);
    EXPECT_TRUE(leaking.ran && leaking.leaks && !leaking.Completed()) << leaking.Describe();

    const sandbox::Outcome traced = RunInDevice(sandbox::DeviceTree().Dir("/data"), [](auto& ctx) {
        const int saved = dup(2);
        const int file = open("/data/trace", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, 2);
        // Printed from inside libbase, a shared library whose file the root doesn't hold.
        android::base::SetLogger([](auto&&...) { __sanitizer_print_stack_trace(); });
        LOG(INFO) << "trace";
        dup2(saved, 2);
        close(file);
        std::string trace;
        ReadFileToString("/data/trace", &trace);
        ctx.Note("trace", trace);
    });
    ASSERT_DEVICE_RAN(traced);
    EXPECT_THAT(traced.notes.at("trace"), testing::HasSubstr("android::base::LogMessage::~LogMessage"));
    EXPECT_THAT(traced.notes.at("trace"), testing::HasSubstr("sandbox_boundary_test.cpp:"));
}

}  // namespace
}  // namespace zelva_test
