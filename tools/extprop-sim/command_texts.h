// SPDX-License-Identifier: Apache-2.0
// What each command's --help says: its synopsis, its one-line summary and
// what it does; and what every command shares, for the program's --help.
#pragma once

namespace extprop_sim {

struct Command {
    const char* name;
    const char* synopsis;
    const char* summary;
    const char* details;
};

constexpr Command kBoot = {
        "boot", "boot --root DIR [BOOT OPTIONS] [--json] [--keep-root] [--html FILE]",
        "Boot a device tree as init would and show every batch",
        "Makes the device tree DIR the root of a sandboxed child (the tree read-only,\n"
        "the library's writes in a scratch layer over it), loads the library, and\n"
        "runs init's boot sequence (or the steps of --script), setting every batch\n"
        "the way init does. Prints each batch with its slot, operation and kind,\n"
        "marking what each entry did to the property store (+ new, ~ changed,\n"
        "= already set, - cleared, ! refused by init, with the reason) and its value\n"
        "after boot when a later batch changed it; then the properties after boot.\n"
        "A refusal is reported, not an error: exit 0; a failed script assertion\n"
        "exits 1. The library's log goes to stderr; --json prints one JSON document\n"
        "instead. --html FILE also writes one self-contained HTML page: the steps\n"
        "and batches, init's refusals, every property with the file:line it came\n"
        "from (a filter box; FILE#filter=TEXT opens filtered), and a grid of which\n"
        "partition defines what and which definition wins."};

constexpr Command kExplain = {
        "explain", "explain NAME --root DIR [BOOT OPTIONS] [--json]",
        "Tell the story of one property through a boot",
        "Boots like boot and tells the story of one property: the --props value it\n"
        "started with, every file that set it (with the step that loaded the file\n"
        "and the values it overrode), every batch that carried it and whether init\n"
        "set or refused it, its SELinux context, and its value after boot. Exit\n"
        "status 1 when the property plays no part in the boot."};

constexpr Command kDiff = {
        "diff", "diff --root DIR --root-b DIR [BOOT OPTIONS] [--props-b FILE] [--json]",
        "Boot two device trees and compare the properties they end with",
        "Boots both trees (--props seeds both unless --props-b gives B its own) and\n"
        "prints the properties whose values after boot differ: - only in A, + only\n"
        "in B, ~ changed. Exit status 0 when they are the same, 1 when they differ.\n"
        "The older 'diff TREE_A TREE_B' still works, with a warning."};

constexpr Command kCheck = {
        "check",
        "check --golden FILE --root DIR [BOOT OPTIONS] [--ignore GLOB]... [--update]\n"
        "      [--html PAGE]",
        "Boot and compare with a saved boot --json document",
        "Boots like boot (or runs --script and --then) and compares the result with\n"
        "the golden FILE, a boot --json document: the steps, every batch's entries,\n"
        "the properties after boot and the log, one line per property that differs.\n"
        "What varies between machines is left out on both sides (the library's source\n"
        "line of a log record, timings); --ignore GLOB also leaves out the properties\n"
        "and log messages it matches (a shell glob, repeatable). --update writes FILE\n"
        "from this boot instead; --html writes the boot's page when the check fails.\n"
        "Exit status 0 when they are the same (or FILE was written), 1 when they\n"
        "differ or a script assertion failed."};

constexpr Command kState = {
        "state", "state --root DIR [BOOT OPTIONS] [--json]",
        "Show the switch-key files before and after each boot",
        "Shows the switch-key files on the reserve partition\n"
        "(/mnt/vendor/zelvareserve/system/ssv, .../flag) and under\n"
        "/data/system/customize/sim_switch as the tree holds them, then what each\n"
        "boot (of --script or --then's sequence) wrote: + created, ~ changed,\n"
        "- removed, with content, owner and mode; a restart step's own changes (a\n"
        "wiped /data) are shown before the boot it starts."};

constexpr Command kLint = {
        "lint",
        "lint --root DIR [--props FILE] [--property-contexts FILE]... [--disable RULE]...\n"
        "     [--werror] [--no-boot] [--sarif FILE] [--json]\n"
        "     lint --overrides --root DIR [--props FILE] [--property-contexts FILE]...\n"
        "     [--host vendor|aosp] [--json]",
        "Report what in a device tree would silently go wrong at boot",
        "Reads the tree as the library will, inside the device root (links resolve\n"
        "within the tree, a loop is an error), and reports, one \"path:line:\n"
        "severity: message [rule]\" line each, what would silently go wrong at boot:\n"
        "properties init would refuse (illegal names or values, no SELinux context,\n"
        "a value not of the context's type) in any property file the library reads,\n"
        "imports that can't be expanded (with the tree's and --props' properties) or\n"
        "name no file, files that are symbolic links or unreadable, property sets no\n"
        "key can select, map file entries whose target key selects nothing, an\n"
        "unknown brand or a missing SKU region. It also boots the tree (unless\n"
        "--no-boot) and records every file the library opens, tests or lists: a\n"
        "property file under a partition that no boot reads, and a read that fails,\n"
        "are findings too. Each finding has a rule id (the\n"
        "README lists them); --disable drops a rule's findings, --sarif writes a\n"
        "SARIF 2.1.0 log.\n"
        "Exit status 1 when there are errors (or, with --werror, warnings). The\n"
        "older 'lint TREE' still works, with a warning.\n"
        "--overrides boots the tree instead (init's boot sequence) and lists, for\n"
        "each property defined in more than one place, every file:line that defines\n"
        "it in the order the boot loaded them: the one init's value came from\n"
        "(wins), the others shadowed (a value init doesn't end with) or of the same\n"
        "value. Exit status 0."};

constexpr Command kParse = {
        "parse", "parse FILE [--root DIR] [--prop NAME=VALUE]... [--filter FILTER] [-v] [--json]",
        "Load one property file through the library's parser",
        "Loads one property file through the library's parser (imports, filters,\n"
        "${name} expansion with the --prop values) and prints the result sorted.\n"
        "With --root, FILE (a path inside DIR, or a device path) is read and its\n"
        "imports followed inside the device root DIR; without it, imports are\n"
        "reported as not followed."};

constexpr const Command* kCommands[] = {&kBoot,  &kExplain, &kDiff, &kCheck,
                                        &kState, &kLint,    &kParse};

constexpr char kCommonText[] = R"(
Boot options (boot, explain, diff):
  --root DIR     the device tree, whose directory becomes the device's root
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
escapes control bytes (\n, \x1b, ...) from the tree; --json prints one document
of the shape extprop-sim/1 (docs/extprop-sim.schema.json), exact for any bytes.
Options take their value as --opt VALUE or --opt=VALUE; each command has --help.

Exit status: 0 success, 1 findings, 2 bad usage or a boot that could not run.
)";

std::string Indented(const std::string& text) {
    std::string out = "      ";
    for (const char c : text) {
        out += c;
        if (c == '\n') out += "      ";
    }
    return out;
}

}  // namespace extprop_sim
