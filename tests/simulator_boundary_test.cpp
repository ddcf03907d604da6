// SPDX-License-Identifier: Apache-2.0
// The simulator's commands against hostile device trees: whatever a tree's imports, links,
// loops and file names say, no command reads or changes a file of this machine outside the
// tree, option files of any kind are read with bounds, and no byte of the tree can forge a
// line of the text output. Each test runs the built extprop-sim beside a host directory that
// holds a sentinel file, and checks afterwards that the sentinel's content never appeared and
// that the host directory is unchanged.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr char kSentinel[] = "SENTINEL-7f3a91-host-content";

class SimulatorBoundaryTest : public testing::Test {
  protected:
    void SetUp() override {
        const char* tmp = getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/zbt-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr) << strerror(errno);
        scratch_ = pattern;
        host_ = scratch_ + "/host";
        tree_ = scratch_ + "/tree";
        fs::create_directories(host_ + "/etc");
        // Each holds the sentinel in a value and in an illegal name, which lint would quote.
        const std::string secret =
                std::string("leak.secret=") + kSentinel + "\nbad " + kSentinel + "=1\n";
        ASSERT_TRUE(android::base::WriteStringToFile(secret, host_ + "/secret.prop"));
        ASSERT_TRUE(android::base::WriteStringToFile(secret, host_ + "/etc/build.EU.prop"));
        before_ = Snapshot(host_);
    }

    void TearDown() override {
        EXPECT_EQ(Snapshot(host_), before_) << "the host directory changed";
        std::error_code ec;
        fs::remove_all(scratch_, ec);
    }

    void LayOut(const sandbox::DeviceTree& tree) {
        std::string error;
        ASSERT_TRUE(tree.Materialize(tree_, &error)) << error;
    }

    // Runs extprop-sim with |args| in the scratch directory, stdin from |input|. Every run's
    // output is checked for the sentinel.
    SimRun Sim(const std::vector<std::string>& args, const std::string& input = "/dev/null") {
        TemporaryFile out, err;
        fflush(nullptr);
        const pid_t pid = fork();
        if (pid == 0) {
            const int in = open(input.c_str(), O_RDONLY);
            if (in < 0 || dup2(in, 0) < 0 || dup2(out.fd, 1) < 0 || dup2(err.fd, 2) < 0 ||
                chdir(scratch_.c_str()) != 0) {
                _exit(127);
            }
            std::vector<char*> argv = {const_cast<char*>(ZELVA_SIMULATOR_PATH)};
            for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        SimRun run;
        int status = 0;
        waitpid(pid, &status, 0);
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        android::base::ReadFileToString(out.path, &run.out);
        android::base::ReadFileToString(err.path, &run.err);
        EXPECT_THAT(run.out + run.err, Not(HasSubstr(kSentinel))) << android::base::Join(args, " ");
        return run;
    }

    std::string scratch_, host_, tree_;
    std::map<std::string, HostFile> before_;
};

// --- parse: imports name device paths ---

TEST_F(SimulatorBoundaryTest, ParseWithoutRootReportsAnImportAsNotFollowed) {
    ASSERT_TRUE(android::base::WriteStringToFile("a=1\nimport " + host_ + "/secret.prop\n",
                                                 scratch_ + "/build.prop"));
    const SimRun run = Sim({"parse", "build.prop"});
    EXPECT_EQ(run.status, 0) << testing::PrintToString(run);
    EXPECT_EQ(run.out, "a=1\n");
    EXPECT_EQ(run.err, "extprop-sim: build.prop: import '" + host_ +
                               "/secret.prop' not followed: imports are device paths, give the "
                               "device tree with --root DIR\n");
}

TEST_F(SimulatorBoundaryTest, ParseWithRootFollowsImportsInsideTheDeviceRootOnly) {
    REQUIRE_SANDBOX();
    const std::string imports = "a=1\nimport /my_region/etc/locale.prop\nimport " + host_ +
                                "/secret.prop\nimport /etc/build.EU.prop\n";
    LayOut(sandbox::DeviceTree()
                   .File("/my_region/build.prop", imports)
                   .File("/my_region/etc/locale.prop", "b=2\n")
                   .Symlink("/etc", host_ + "/etc"));
    const SimRun run = Sim({"parse", "tree/my_region/build.prop", "--root", "tree"});
    EXPECT_EQ(run.status, 0) << testing::PrintToString(run);
    EXPECT_EQ(run.out, "a=1\nb=2\n");
    // The same file named as a device path.
    EXPECT_EQ(Sim({"parse", "/my_region/build.prop", "--root", "tree"}).out, "a=1\nb=2\n");
}

TEST_F(SimulatorBoundaryTest, ParseOfTheReadmeExampleShowsItsImportWithRoot) {
    REQUIRE_SANDBOX();
    const std::string example = ExamplesDir() + "/alder-eu";
    const SimRun run = Sim({"parse", example + "/my_region/build.prop", "--root", example});
    EXPECT_EQ(run.status, 0) << testing::PrintToString(run);
    EXPECT_THAT(Lines(run.out), Contains("ro.product.locale.list=en-GB,de-DE,fr-FR,it-IT,es-ES"));
}

// --- lint: the tree as the library meets it at boot ---

TEST_F(SimulatorBoundaryTest, LintResolvesAbsoluteLinksBelowAPartitionInsideTheDeviceRoot) {
    REQUIRE_SANDBOX();
    LayOut(sandbox::DeviceTree()
                   .File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n")
                   .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n")
                   .Symlink("/my_region/properties/ROOT", host_)
                   .Symlink("/my_region/properties/K/regionSwitch", host_)
                   .Symlink("/my_region/etc", host_ + "/etc"));
    const SimRun run = Sim({"lint", "--root", "tree"});
    EXPECT_EQ(run.status, 0) << testing::PrintToString(run);
    EXPECT_THAT(Lines(run.out), ElementsAre("tree: 0 error(s), 0 warning(s)"));
}

TEST_F(SimulatorBoundaryTest, LintReportsAPartitionLinkLoopAsTheLibraryMeetsIt) {
    REQUIRE_SANDBOX();
    LayOut(sandbox::DeviceTree()
                   .File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n")
                   .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n")
                   .Symlink("/my_carrier", "/my_carrier"));
    const SimRun run = Sim({"lint", "--root", "tree"});
    EXPECT_EQ(run.status, 1) << testing::PrintToString(run);
    EXPECT_THAT(Lines(run.out),
                ElementsAre("tree/my_carrier: error: Too many levels of symbolic links "
                            "[symlink-loop]",
                            "tree/my_carrier/cust: error: Too many levels of symbolic links "
                            "[symlink-loop]",
                            "tree: 2 error(s), 0 warning(s)"));
}

// --- option files ---

TEST_F(SimulatorBoundaryTest, OptionFilesMayBeLinksFifosOrStdin) {
    ASSERT_TRUE(android::base::WriteStringToFile("a=1\n", scratch_ + "/real.prop"));
    ASSERT_EQ(symlink((scratch_ + "/real.prop").c_str(), (scratch_ + "/link.prop").c_str()), 0);
    ASSERT_EQ(mkfifo((scratch_ + "/fifo.prop").c_str(), 0600), 0);
    std::thread writer([&] { android::base::WriteStringToFile("f=2\n", scratch_ + "/fifo.prop"); });
    EXPECT_EQ(Sim({"parse", "fifo.prop"}).out, "f=2\n");
    // Should the read have failed, a reader lets the writer finish.
    android::base::unique_fd unblock(
            open((scratch_ + "/fifo.prop").c_str(), O_RDONLY | O_NONBLOCK));
    writer.join();
    EXPECT_EQ(Sim({"parse", "link.prop"}).out, "a=1\n");
    EXPECT_EQ(Sim({"parse", "/dev/stdin"}, scratch_ + "/real.prop").out, "a=1\n");
}

TEST_F(SimulatorBoundaryTest, OptionFilesBeyondSixteenMebibytesAreOneLineErrors) {
    const std::string too_large = "extprop-sim: /dev/zero is larger than 16 MiB\n";
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
                 {"parse", "/dev/zero"},
                 {"boot", "--root", ExamplesDir() + "/alder-eu", "--props", "/dev/zero"},
                 {"boot", "--root", ExamplesDir() + "/alder-eu", "--script", "/dev/zero"},
                 {"lint", "--root", ExamplesDir() + "/alder-eu", "--props", "/dev/zero"}}) {
        const SimRun run = Sim(args);
        EXPECT_EQ(run.status, 2) << android::base::Join(args, " ");
        EXPECT_EQ(run.err, too_large) << android::base::Join(args, " ");
    }
}

TEST_F(SimulatorBoundaryTest, AFifoNobodyWritesToTimesOut) {
    ASSERT_EQ(mkfifo((scratch_ + "/silent.props").c_str(), 0600), 0);
    const auto start = std::chrono::steady_clock::now();
    const SimRun run =
            Sim({"boot", "--root", ExamplesDir() + "/alder-eu", "--props", "silent.props"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err,
              "extprop-sim: cannot read silent.props: nothing written to it for 5 s (a "
              "FIFO with no writer?)\n");
}

// --- text output: the tree's bytes escaped ---

TEST_F(SimulatorBoundaryTest, AFileNameWithNewlinesCannotForgeLintLines) {
    REQUIRE_SANDBOX();
    LayOut(sandbox::DeviceTree()
                   .File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n")
                   .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n")
                   .File("/my_region/properties/DE/regionSwitch/x\nbuild.prop: error: forged\n"
                         "z.prop",
                         "bad\x1b[2Jname=1\r\n"));
    const SimRun run = Sim({"lint", "--root", "tree"});
    EXPECT_EQ(run.status, 1) << testing::PrintToString(run);
    EXPECT_THAT(Lines(run.out),
                ElementsAre("tree/my_region/properties/DE/regionSwitch/x\\nbuild.prop: error: "
                            "forged\\nz.prop:1: error: illegal property name 'bad\\x1b[2Jname' "
                            "[illegal-name]",
                            "tree: 1 error(s), 0 warning(s)"));
}

TEST_F(SimulatorBoundaryTest, ParseAndBootEscapeControlBytesAndJsonStaysExact) {
    const std::string hostile = "persist.x=\x1b[2J\rforged\x7f\xc2\x9b\n";
    ASSERT_TRUE(android::base::WriteStringToFile(hostile, scratch_ + "/build.prop"));
    EXPECT_EQ(Sim({"parse", "build.prop"}).out, "persist.x=\\x1b[2J\\rforged\\x7f\\xc2\\x9b\n");

    REQUIRE_SANDBOX();
    LayOut(sandbox::DeviceTree().File("/my_carrier/build.prop", hostile).Dir("/data"));
    const SimRun text = Sim({"boot", "--root", "tree"});
    EXPECT_EQ(text.status, 0) << testing::PrintToString(text);
    EXPECT_THAT(Lines(text.out), Contains("persist.x=\\x1b[2J\\rforged\\x7f\\xc2\\x9b"));
    for (const std::string& output : {text.out, text.err}) {
        EXPECT_EQ(output.find_first_of(std::string("\x1b\r\x7f", 3)), std::string::npos);
    }
    const SimRun json = Sim({"boot", "--root", "tree", "--json"});
    EXPECT_THAT(json.out, HasSubstr(R"("value": "\u001b[2J\rforged)"
                                    "\x7f\xc2\x9b\""));
}

}  // namespace
}  // namespace zelva_test
