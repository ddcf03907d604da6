// SPDX-License-Identifier: Apache-2.0
// Runs the built extprop-sim with an argument vector (no shell) and checks
// its --json documents against docs/extprop-sim.schema.json.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {

// A run of the tool, as Sim() reports it.
using SimulatorRun = SimRun;

// "extprop-sim <args>" in |dir| (default: the examples, with their trees
// ./alder-eu and ./birch-cn and seeded properties ./<tree>.props).
inline SimulatorRun RunSimulator(const std::vector<std::string>& args,
                                 const std::string& dir = ExamplesDir()) {
    TemporaryFile out, err;
    std::vector<const char*> argv = {ZELVA_SIMULATOR_PATH};
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(127);
        const int null = open("/dev/null", O_RDONLY);
        dup2(null, 0);
        dup2(out.fd, 1);
        dup2(err.fd, 2);
        execv(argv[0], const_cast<char* const*>(argv.data()));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    SimulatorRun run;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    android::base::ReadFileToString(out.path, &run.out);
    android::base::ReadFileToString(err.path, &run.err);
    return run;
}

// What the schema check says about |document|: empty when it conforms.
inline std::string SchemaFaults(const std::string& document) {
    TemporaryFile file, report;
    android::base::WriteStringToFd(document, file.fd);
    const std::string command = std::string(ZELVA_PYTHON3) +
                                " " ZELVA_SOURCE_DIR "/tests/check_json_schema.py " ZELVA_SOURCE_DIR
                                "/docs/extprop-sim.schema.json " +
                                file.path + " >" + report.path + " 2>&1";
    const int status = system(command.c_str());
    std::string faults;
    android::base::ReadFileToString(report.path, &faults);
    if (status != 0 && faults.empty()) faults = "the schema check failed to run";
    return faults;
}

MATCHER(ConformsToTheSchema, "a document that docs/extprop-sim.schema.json accepts") {
    const std::string faults = SchemaFaults(arg);
    *result_listener << faults;
    return faults.empty();
}

}  // namespace zelva_test
