// SPDX-License-Identifier: Apache-2.0
// extprop-sim: boots libzelvaextproperty against a device tree on a Linux
// machine and shows what init would receive.

#include <cstdio>
#include <cstring>

#include "build_config.h"
#include "commands.h"
#include "printable.h"

namespace {

constexpr char kUsage[] = R"(extprop-sim - runs libzelvaextproperty on a host as init would

Usage:
  extprop-sim boot --root DIR [BOOT OPTIONS] [--json] [--keep-root]
      Makes the device tree DIR the root of a sandboxed child (the tree read-only,
      the library's writes in a scratch layer over it), loads the library, and
      runs init's boot sequence (or the steps
      of --script), setting every batch the way init does. Prints each batch with
      its slot, operation and kind, marking what each entry did to the property
      store (+ new, ~ changed, = already set, - cleared, ! refused by init, with
      the reason) and its value after boot when a later batch changed it; then
      the properties after boot. A refusal is reported, not an error: exit 0;
      a failed script assertion (below) exits 1.
      The library's log goes to stderr; --json prints one JSON document instead.
  extprop-sim explain NAME --root DIR [BOOT OPTIONS]
      Boots like boot and tells the story of one property: the --props value it
      started with, every file that set it (with the step that loaded the file and
      the values it overrode), every batch that carried it and whether init set
      or refused it, its SELinux context, and its value after boot. Exit status 1 when the property plays no part in the boot.
  extprop-sim diff TREE_A TREE_B [BOOT OPTIONS] [--props-b FILE]
      Boots both trees (--props seeds both unless --props-b gives B its own) and
      prints the properties whose values after boot differ: - only in A, + only
      in B, ~ changed. Exit status 0 when they are the same, 1 when they differ.
  extprop-sim lint TREE [--props FILE] [--property-contexts FILE]...
      Reads the tree as the library will, inside the device root (links resolve
      within the tree, a loop is an error), and reports, one "path: severity:
      problem" line each, what would silently go wrong at boot: properties init
      would refuse (illegal names or values, no SELinux context, a value not of
      the context's type) in any property file the library reads, imports that can't be
      expanded (with the tree's and --props' properties) or name no file, files
      that are symbolic links or unreadable, property sets no key can select,
      map file entries whose target key selects nothing, an unknown brand or a
      missing SKU region. Exit status 1 when there are errors.
  extprop-sim parse FILE [--root DIR] [--prop NAME=VALUE]... [--filter FILTER] [-v]
      Loads one property file through the library's parser (imports, filters,
      ${name} expansion with the --prop values) and prints the result sorted.
      With --root, FILE (a path inside DIR, or a device path) is read and its
      imports followed inside the device root DIR; without it, imports are
      reported as not followed.
  extprop-sim --help | --version
      Prints this text, or the program's name and version.

Boot options:
  --props FILE   system properties set before boot, one name=value a line
  --script FILE  boot steps to run instead of init's boot sequence (below)
  --lib PATH     the library to load (default: )" EXTPROP_SIM_DEFAULT_LIBRARY R"(
                 from this program's directory)
  -v, --verbose  the library's VERBOSE records too
  --host vendor|aosp   the init that receives the batches: vendor (default) also
                 sets late ro. values; aosp refuses an ro. property already set
  --property-contexts FILE   SELinux property contexts (repeatable), besides
                 the tree's /system, /system_ext, /product, /vendor and /odm
                 etc/selinux/*_property_contexts; none at all: no context check

Script steps, one a line (# starts a comment):
  slot N [ARGS...]  or an operation name with its arguments, e.g.
      loadPersistOverrideProperties, loadCotaServiceOverrideProperties check_mount
  setprop NAME VALUE        sleep MS          write PATH TEXT   (\n: line feed)
  wait-prop NAME VALUE [MS] wait-log TEXT [MS]
  cota-boot                 the COTA service's boot requests to the bind thread
  host vendor|aosp          init's rules from this step on
  boot-sequence             init's boot sequence (what runs without --script)
Boots in sequence: each restart is a new process that loads the library anew;
/data, the reserve partition and persist.* properties are kept, the rest of
the property store starts again from --props. The steps after it are what the
new boot runs (usually boot-sequence).
  reboot                    wipe-data   (a reboot with /data and persist.* emptied)
  ota PARTITION DIR         a reboot with /PARTITION holding DIR's content
                            (DIR relative to the script's directory)
  sim-switch KEY            the new current switch key on the reserve partition
                            and in sys.sim.switch.current, then slot 9 and slot
                            10 propertiesOverrideSwitch
Assertions (the run goes on; any failure, or a timed-out wait, exits 1 and is
printed on stderr with its line, what was expected and what was seen):
  expect-prop NAME VALUE    expect-no-prop NAME   expect-file PATH CONTENT (\n)
  expect-batch SLOT KIND|map NAME=VALUE...   a batch of that slot and kind in
                            this boot so far holding every NAME=VALUE
  expect-log SEVERITY TEXT  expect-no-log TEXT   a record of this boot so far
                            (SEVERITY: V D I W E F or VERBOSE ... FATAL)

Option files (--props, --script, parse FILE) may be files, FIFOs, /dev/stdin or
links; more than 16 MiB, or a FIFO silent for 5 s, is an error. Text output
escapes control bytes (\n, \x1b, ...) from the tree; --json is exact.

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
    if (strcmp(argv[1], "--version") == 0) {
        printf("extprop-sim %s\n", EXTPROP_SIM_VERSION);
        return kExitOk;
    }
    const std::string command = argv[1];
    const Args args(argv + 2, argv + argc);
    if (command == "parse") return ParseCommand(args);
    if (command == "boot") return BootCommand(args);
    if (command == "explain") return ExplainCommand(args);
    if (command == "diff") return DiffCommand(args);
    if (command == "lint") return LintCommand(args);
    return Fail("unknown command '" + command + "' (see extprop-sim --help)");
}

namespace extprop_sim {

int Fail(const std::string& message) {
    fprintf(stderr, "extprop-sim: %s\n", Printable(message).c_str());
    return kExitError;
}

}  // namespace extprop_sim
