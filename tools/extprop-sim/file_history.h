// SPDX-License-Identifier: Apache-2.0
// The files that the parser loaded during a boot, as each step left them, for
// explain: which file set a property can only be told from the file's
// content, and the library rewrites key files and mounts COTA content over
// partitions as it goes.
//
// libbase has one logger and the sandbox owns it, so the child learns which
// files were loaded from the logger's stderr echo, which it sends to a memory
// file of its own. After each step it reads the files named by the new
// "(Loading properties from F took ...)" records, and only those that mention
// the property travel back, as notes. A tree's other files are never read.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sandbox.h"

namespace extprop_sim {

// The parser's record of a file it finished: "(Loading properties from F took Nms.)".
constexpr char kLoadedPrefix[] = "(Loading properties from ";
constexpr char kLoadedSuffix[] = " took ";

// Every loaded file travels back, for the model of all definitions, up to this
// many bytes in a boot; a file that repeats an earlier load's content is
// noted as the repeat. A file past the budget is noted by its size only.
constexpr size_t kEveryFileBudget = 64 << 20;

class LoadedFiles {
  public:
    // Every loaded file (up to kEveryFileBudget).
    LoadedFiles() = default;
    explicit LoadedFiles(std::string name) : names_{std::move(name)} {}
    // The files that mention |name| travel back too (the inputs of a derived value).
    void AlsoFor(std::string name) { names_.push_back(std::move(name)); }

    // Inside the device, before the first step; needs the log echoed to stderr
    // at VERBOSE. Returns false when the echo can't be redirected.
    bool Start();
    // Inside the device, after each step.
    void CaptureAfterStep(sandbox::Context& ctx);

    // In the host, from the notes of the boot: the content of the file of the
    // |load|-th "Loading properties" record (from 0, in record order) as the
    // step that loaded it left it, or nullopt when it didn't mention the property.
    static std::optional<std::string> Content(const sandbox::Outcome& outcome, size_t load);
    // The same without a copy (a file can be large): null for nullopt.
    static const std::string* Find(const sandbox::Outcome& outcome, size_t load);
    // For every file: the size of a file left out for the budget, or nullopt.
    static std::optional<size_t> LeftOut(const sandbox::Outcome& outcome, size_t load);
    // Renumbers the files a later boot of a sequence noted (it counts from 0)
    // to follow the |loads_before| records of the boots before it.
    static void RenumberLoads(sandbox::PropertyMap* notes, size_t loads_before);

  private:
    void NoteEveryFile(sandbox::Context& ctx, size_t load, std::string content);

    std::vector<std::string> names_;
    int fd_ = -1;
    off_t read_ = 0;       // bytes of the echo already looked at
    std::string partial_;  // an unfinished last line
    size_t loads_ = 0;
    size_t budget_ = kEveryFileBudget;
    std::map<std::string, size_t> seen_;  // every file: content -> its first load
};

}  // namespace extprop_sim
