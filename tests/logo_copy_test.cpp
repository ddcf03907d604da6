// SPDX-License-Identifier: Apache-2.0
// The boot logo copy measures the logo and the splash partition by seeking to
// their ends, whatever kind of file they are: a node that seeks to 0 is an empty
// logo or a partition too small for any logo. Only what can't be opened or
// seeked, and directories and FIFOs, is refused.

#include <fcntl.h>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "switch_test_support.h"

namespace zelva_test {
namespace {

using testing::Contains;
using testing::IsEmpty;

constexpr char kSplash[] = "/dev/block/by-name/splash_odm";
constexpr char kLogoImage[] = "/my_company/media/logo/logo.img";
constexpr char kLogoDate[] = "persist.record.my_company.date.forlogo";
const std::string kCompanyDate = "20240101";
constexpr char kTooLarge[] = "Logo resource is too large";

// A character device of this process, reachable inside the device root as
// /proc/self/fd/<n>: the sandbox child is forked, so it holds the descriptor too.
class HostDevice {
  public:
    explicit HostDevice(const char* path) : fd_(open(path, O_RDWR | O_CLOEXEC)) {}
    bool ok() const { return fd_ != -1; }
    std::string DevicePath() const { return "/proc/self/fd/" + std::to_string(fd_.get()); }

  private:
    android::base::unique_fd fd_;
};

// Runs |trigger| of slot 10 on |tree|, with the company image dated; the
// partition's bytes afterwards (when it is a file) come back as the note "splash".
sandbox::Outcome RunLogoTrigger(const sandbox::DeviceTree& tree, const char* trigger) {
    sandbox::Options options;
    options.properties = {{"ro.zelva.image.my_company.date.utc", kCompanyDate}};
    options.mounts.push_back({sandbox::MountSetup::Kind::kHostBind, "/proc"});
    options.capture_tree = false;  // the tree now holds the host's /proc
    return RunInDevice(
            tree,
            [trigger](sandbox::Context& ctx) {
                auto* impl = Impl();
                impl->loadSimSwitchOverrideProperties(trigger, ctx.sink());
                std::string splash;
                android::base::ReadFileToString(kSplash, &splash, false);
                ctx.Note("splash", splash);
            },
            options);
}

// The boot trigger with the company logo |logo| and /dev/null as the splash partition.
sandbox::Outcome CopyOntoNullPartition(const std::string& logo) {
    HostDevice null_device("/dev/null");
    EXPECT_TRUE(null_device.ok());
    sandbox::DeviceTree tree;
    tree.File(kLogoImage, logo).Symlink(kSplash, null_device.DevicePath());
    return RunLogoTrigger(tree, "triggerLogoCopyFromCompanyBoot");
}

TEST(LogoCopyTest, PartitionThatSeeksToZeroIsTooSmallForAnyLogo) {
    sandbox::Outcome o = CopyOntoNullPartition("IMG");
    ASSERT_DEVICE_RAN(o);
    EXPECT_TRUE(o.HasLog(android::base::INFO, kTooLarge));
    EXPECT_THAT(o.Messages(android::base::ERROR), IsEmpty());
    EXPECT_EQ(PropertyAt(o, kLogoDate), std::nullopt);
}

TEST(LogoCopyTest, EmptyLogoCopiesNothingAndRecordsTheDate) {
    sandbox::Outcome o = CopyOntoNullPartition("");
    ASSERT_DEVICE_RAN(o);
    EXPECT_FALSE(o.HasLog(android::base::INFO, kTooLarge));
    EXPECT_THAT(o.Messages(android::base::ERROR), IsEmpty());
    EXPECT_EQ(PropertyAt(o, kLogoDate), kCompanyDate);
}

TEST(LogoCopyTest, LogoDeviceThatSeeksToZeroCopiesNothing) {
    HostDevice zero_device("/dev/zero");
    ASSERT_TRUE(zero_device.ok());
    sandbox::DeviceTree tree;
    tree.Symlink(kLogoImage, zero_device.DevicePath()).File(kSplash, "........");
    sandbox::Outcome o = RunLogoTrigger(tree, "triggerLogoCopyFromCompany");
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.Messages(android::base::ERROR), IsEmpty());
    EXPECT_EQ(o.notes["splash"], "........");
    EXPECT_EQ(PropertyAt(o, kLogoDate), kCompanyDate);
}

// Neither has a size to copy by: the partition stays as it was, and nothing is recorded.
TEST(LogoCopyTest, DirectoryOrFifoAsLogoIsRefused) {
    for (const bool fifo : {false, true}) {
        SCOPED_TRACE(fifo ? "FIFO" : "directory");
        sandbox::DeviceTree tree;
        tree.File(kSplash, "........");
        if (fifo) {
            tree.Fifo(kLogoImage);
        } else {
            tree.Dir(kLogoImage);
        }
        sandbox::Outcome o = RunLogoTrigger(tree, "triggerLogoCopyFromCompany");
        ASSERT_DEVICE_RAN(o);
        EXPECT_THAT(o.Messages(android::base::ERROR),
                    Contains("Unable to write logo copy info file"));
        EXPECT_EQ(o.notes["splash"], "........");
        EXPECT_EQ(PropertyAt(o, kLogoDate), std::nullopt);
    }
}

}  // namespace
}  // namespace zelva_test
