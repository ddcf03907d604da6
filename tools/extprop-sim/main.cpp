// extprop-sim: boots libzelvaextproperty against a device tree on a Linux
// machine and shows what init would receive.

#include <cstdio>
#include <cstring>

#include "commands.h"

namespace {

constexpr char kUsage[] = R"(extprop-sim - runs libzelvaextproperty on a host as init would

Usage:
  extprop-sim boot --root DIR [--props FILE] [--script FILE] [--json] [--lib PATH]
                   [-v] [--keep-root]
      Copies the device tree DIR to a scratch root, enters it in a private mount
      namespace, loads the library, and runs init's boot sequence (or the steps
      of --script), setting every batch the way init does. Prints each batch with
      its slot, operation and kind, then the properties after boot; the library's
      log goes to stderr. --props seeds system properties from name=value lines.
  extprop-sim parse FILE [--prop NAME=VALUE]... [--filter FILTER] [-v]
      Loads one property file through the library's parser (imports, filters,
      ${name} expansion with the --prop values) and prints the result sorted.

Script steps, one a line (# starts a comment):
  slot N [ARGS...]  or an operation name with its arguments, e.g.
      loadPersistOverrideProperties, loadCotaServiceOverrideProperties check_mount
  setprop NAME VALUE        sleep MS          write PATH TEXT   (\n: line feed)
  wait-prop NAME VALUE [MS] wait-log TEXT [MS]
  cota-boot                 the COTA service's boot requests to the bind thread

Exit status: 0 success, 1 findings, 2 bad usage or a boot that could not run.
)";

}  // namespace

int main(int argc, char** argv) {
    using namespace extprop_sim;
    if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 ||
        strcmp(argv[1], "help") == 0) {
        fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? kExitError : kExitOk;
    }
    const std::string command = argv[1];
    const Args args(argv + 2, argv + argc);
    if (command == "parse") return ParseCommand(args);
    if (command == "boot") return BootCommand(args);
    return Fail("unknown command '" + command + "' (see extprop-sim --help)");
}

namespace extprop_sim {

int Fail(const std::string& message) {
    fprintf(stderr, "extprop-sim: %s\n", message.c_str());
    return kExitError;
}

}  // namespace extprop_sim
