// SPDX-License-Identifier: Apache-2.0
#include "option_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

namespace extprop_sim {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

Result<std::string> ReadOptionFile(const std::string& path) {
    // Non-blocking: opening a FIFO must not wait for a writer, and a FIFO's
    // silence is timed by poll below instead of hanging in read.
    android::base::unique_fd fd(
            TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)));
    if (fd == -1) return ErrnoError() << "cannot read " << path;
    struct stat st;
    if (fstat(fd.get(), &st) != 0) return ErrnoError() << "cannot read " << path;
    if (S_ISDIR(st.st_mode)) return Error() << "cannot read " << path << ": it is a directory";
    const std::string too_large =
            path + " is larger than " + std::to_string(kOptionFileLimit >> 20) + " MiB";
    if (S_ISREG(st.st_mode) && static_cast<uintmax_t>(st.st_size) > kOptionFileLimit) {
        return Error() << too_large;
    }
    const bool fifo = S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode);
    std::string content;
    char buffer[65536];
    while (true) {
        // A FIFO that never had a writer reads as empty at once; poll tells a
        // writer's data or hang-up from nobody there yet.
        if (fifo) {
            pollfd pfd{fd.get(), POLLIN, 0};
            const int ready = TEMP_FAILURE_RETRY(poll(&pfd, 1, kFifoSilenceLimit.count()));
            if (ready == 0) {
                return Error() << "cannot read " << path << ": nothing written to it for "
                               << kFifoSilenceLimit.count() / 1000 << " s (a FIFO with no writer?)";
            }
            if (ready < 0) return ErrnoError() << "cannot read " << path;
        }
        const ssize_t n = TEMP_FAILURE_RETRY(read(fd.get(), buffer, sizeof(buffer)));
        if (n == 0) return content;
        if (n < 0 && errno == EAGAIN) {
            // A terminal or device with nothing yet: wait for it like a shell would.
            pollfd pfd{fd.get(), POLLIN, 0};
            if (!fifo) TEMP_FAILURE_RETRY(poll(&pfd, 1, -1));
            continue;
        }
        if (n < 0) return ErrnoError() << "cannot read " << path;
        if (content.size() + n > kOptionFileLimit) return Error() << too_large;
        content.append(buffer, n);
    }
}

}  // namespace extprop_sim
