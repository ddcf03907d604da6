// SPDX-License-Identifier: Apache-2.0
#include "access_record.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace extprop_sim {
namespace {

std::atomic<const void*> g_library_base{nullptr};
std::mutex g_mutex;
std::vector<LibraryAccess>* g_accesses = new std::vector<LibraryAccess>;  // never freed: calls
                                                                          // may come at exit

// Keeps the call when |caller| is code of the recorded library.
void Keep(const void* caller, const char* call, const char* path, int result, int error,
          bool writes = false) {
    const void* base = g_library_base.load(std::memory_order_relaxed);
    if (base == nullptr || path == nullptr) return;
    Dl_info info;
    if (dladdr(caller, &info) == 0 || info.dli_fbase != base) return;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_accesses->push_back({call, path, writes, result < 0 ? error : 0});
}

template <typename Fn>
Fn Next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

mode_t ModeArgument(int flags, va_list args) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, mode_t) : 0;
}

}  // namespace

void RecordLibraryAccess(const void* library_symbol) {
    Dl_info info;
    if (dladdr(library_symbol, &info) != 0) g_library_base = info.dli_fbase;
}

std::vector<LibraryAccess> TakeLibraryAccesses() {
    std::lock_guard<std::mutex> lock(g_mutex);
    std::vector<LibraryAccess> taken;
    taken.swap(*g_accesses);
    return taken;
}

}  // namespace extprop_sim

// The interposed calls. Each passes errno through unchanged.
using extprop_sim::Keep;
using extprop_sim::Next;

extern "C" int open(const char* path, int flags, ...) {
    static const auto next = Next<int (*)(const char*, int, ...)>("open");
    va_list args;
    va_start(args, flags);
    const mode_t mode = extprop_sim::ModeArgument(flags, args);
    va_end(args);
    const int fd = next(path, flags, mode);
    const int error = errno;
    Keep(__builtin_return_address(0), "open", path, fd, error, (flags & O_ACCMODE) != O_RDONLY);
    errno = error;
    return fd;
}

extern "C" int openat(int dir, const char* path, int flags, ...) {
    static const auto next = Next<int (*)(int, const char*, int, ...)>("openat");
    va_list args;
    va_start(args, flags);
    const mode_t mode = extprop_sim::ModeArgument(flags, args);
    va_end(args);
    const int fd = next(dir, path, flags, mode);
    const int error = errno;
    Keep(__builtin_return_address(0), "openat", path, fd, error,
         (flags & O_ACCMODE) != O_RDONLY);
    errno = error;
    return fd;
}

// What a fortified build of the library calls for an open without a mode.
extern "C" int __open_2(const char* path, int flags) {
    static const auto next = Next<int (*)(const char*, int)>("__open_2");
    const int fd = next(path, flags);
    const int error = errno;
    Keep(__builtin_return_address(0), "open", path, fd, error, (flags & O_ACCMODE) != O_RDONLY);
    errno = error;
    return fd;
}

extern "C" int access(const char* path, int how) {
    static const auto next = Next<int (*)(const char*, int)>("access");
    const int result = next(path, how);
    const int error = errno;
    Keep(__builtin_return_address(0), "access", path, result, error);
    errno = error;
    return result;
}

extern "C" DIR* opendir(const char* path) {
    static const auto next = Next<DIR* (*)(const char*)>("opendir");
    DIR* dir = next(path);
    const int error = errno;
    Keep(__builtin_return_address(0), "opendir", path, dir == nullptr ? -1 : 0, error);
    errno = error;
    return dir;
}
