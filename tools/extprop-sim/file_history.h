// The content of the device's files as each step of a boot left them, for
// explain: which file set a property can only be told from the file as the
// parser read it, and the library rewrites key files and mounts COTA content
// over partitions as it goes.
//
// Inside the device, after each step, the tree is walked and only the files
// that are new or changed since the previous walk are read, so a tree of
// thousands of files the boot never touches costs one read of each, not one
// per step. Only files that mention the property travel back, as notes.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "sandbox.h"

namespace extprop_sim {

class FileHistory {
  public:
    explicit FileHistory(std::string name) : name_(std::move(name)) {}

    // Inside the device, after step |step|.
    void CaptureAfterStep(sandbox::Context& ctx, size_t step);

    // In the host, from the notes of the boot: the content of the file at
    // device path |path| (no links on the way) when step |step| read it, or
    // nullopt when it never mentioned the property by then.
    static std::optional<std::string> ContentAt(const sandbox::Outcome& outcome,
                                                const std::string& path, int step);

  private:
    struct Identity {
        dev_t dev;
        ino_t ino;
        off_t size;
        timespec mtime;
        timespec ctime;
        bool operator==(const Identity& other) const;
    };

    const std::string name_;
    std::map<std::string, Identity> seen_;
    std::set<std::string> noted_;  // files whose last note mentioned the property
    timespec last_walk_{};
};

}  // namespace extprop_sim
