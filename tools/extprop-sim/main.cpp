// SPDX-License-Identifier: Apache-2.0
// extprop-sim: boots libzelvaextproperty against a device tree on a Linux
// machine and shows what init would receive. Here: the command line, the
// same option spelled the same way on every command.

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <CLI/CLI.hpp>

#include "build_config.h"
#include "commands.h"
#include "printable.h"

namespace extprop_sim {
namespace {

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
        "check", "check --golden FILE --root DIR [BOOT OPTIONS] [--ignore GLOB]... [--update]",
        "Boot and compare with a saved boot --json document",
        "Boots like boot (or runs --script and --then) and compares the result with\n"
        "the golden FILE, a boot --json document: the steps, every batch's entries,\n"
        "the properties after boot and the log, one line per property that differs.\n"
        "What varies between machines is left out on both sides (the library's source\n"
        "line of a log record, timings); --ignore GLOB also leaves out the properties\n"
        "and log messages it matches (a shell glob, repeatable). --update writes FILE\n"
        "from this boot instead. Exit status 0 when they are the same (or FILE was\n"
        "written), 1 when they differ or a script assertion failed."};

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
        "     [--werror] [--sarif FILE] [--json]\n"
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
        "unknown brand or a missing SKU region. Each finding has a rule id (the\n"
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

std::string TopLevelFooter() {
    std::string out = "Commands:\n";
    for (const Command* command : kCommands) {
        out += std::string("  extprop-sim ") + command->synopsis + "\n" +
               Indented(command->details) + "\n";
    }
    return out + kCommonText;
}

// A value the command line gave must say something: "--root ''" is a mistake.
const CLI::Validator kNotEmpty(
        [](std::string& value) { return value.empty() ? std::string("needs a value") : ""; }, "",
        "not empty");

CLI::App* AddCommand(CLI::App* app, const Command& command) {
    CLI::App* sub = app->add_subcommand(command.name, command.summary);
    sub->footer(std::string("extprop-sim ") + command.synopsis + "\n\n" + command.details + "\n");
    return sub;
}

void AddRoot(CLI::App* command, std::string* tree) {
    command->add_option("--root", *tree,
                        "the device tree, whose directory becomes the device's root")
            ->type_name("DIR")
            ->check(kNotEmpty);
}

void AddContexts(CLI::App* command, std::vector<std::string>* files) {
    command->add_option("--property-contexts", *files,
                        "SELinux property contexts, besides the tree's (repeatable)")
            ->type_name("FILE")
            ->allow_extra_args(false)
            ->check(kNotEmpty);
}

void AddJson(CLI::App* command, bool* json) {
    command->add_flag("--json", *json, "one JSON document (shape extprop-sim/1) instead of text");
}

void AddBootOptions(CLI::App* command, BootOptions* options) {
    AddRoot(command, &options->tree);
    command->add_option("--props", options->props_file,
                        "system properties set before boot, one name=value a line")
            ->type_name("FILE")
            ->check(kNotEmpty);
    command->add_option("--script", options->script_file,
                        "boot steps to run instead of init's boot sequence")
            ->type_name("FILE")
            ->check(kNotEmpty);
    command->add_option("--then", options->then,
                        "one more step after the boot or script, a script line such as "
                        "'reboot' (repeatable)")
            ->type_name("STEP")
            ->allow_extra_args(false)
            ->check(kNotEmpty);
    command->add_option("--lib", options->library, "the library to load")
            ->type_name("PATH")
            ->check(kNotEmpty);
    command->add_flag("-v,--verbose", options->verbose, "the library's VERBOSE records too");
    command->add_option("--host", options->host,
                        "the init that receives the batches (default vendor)")
            ->type_name("vendor|aosp")
            ->check(kNotEmpty);
    AddContexts(command, &options->property_contexts);
}

// The spelling this program had before every command took the tree as
// --root: still accepted, with one line that says so.
bool TakeDeprecatedTrees(const std::vector<std::string>& positional, const char* usage,
                         std::vector<std::string*> trees, std::string* error) {
    if (positional.empty()) return true;
    if (positional.size() != trees.size()) {
        *error = std::string("expected ") + usage;
        return false;
    }
    for (size_t i = 0; i < trees.size(); ++i) {
        if (!trees[i]->empty()) {
            *error = "a device tree given both as --root and as an argument";
            return false;
        }
        *trees[i] = positional[i];
    }
    fprintf(stderr, "extprop-sim: deprecated: the device tree as an argument; use %s\n", usage);
    return true;
}

std::string OneLine(std::string message) {
    for (char& c : message) {
        if (c == '\n') c = ' ';
    }
    while (!message.empty() && message.back() == ' ') message.pop_back();
    return message;
}

}  // namespace

int Fail(const std::string& message) {
    fprintf(stderr, "extprop-sim: %s\n", Printable(message).c_str());
    return kExitError;
}

}  // namespace extprop_sim

int main(int argc, char** argv) {
    using namespace extprop_sim;
    CLI::App app("extprop-sim - runs libzelvaextproperty on a host as init would", "extprop-sim");
    app.set_version_flag("--version", std::string("extprop-sim ") + EXTPROP_SIM_VERSION,
                         "print the program's name and version");
    app.require_subcommand(1);
    app.footer(TopLevelFooter());

    BootArgs boot;
    CLI::App* boot_command = AddCommand(&app, kBoot);
    AddBootOptions(boot_command, &boot.boot);
    AddJson(boot_command, &boot.json);
    boot_command->add_flag("--keep-root", boot.keep_root,
                           "keep what the boot changed in the device root, and say where");
    boot_command
            ->add_option("--html", boot.html_file,
                         "also write the boot as one self-contained HTML page to FILE")
            ->type_name("FILE")
            ->check(kNotEmpty);

    ExplainArgs explain;
    CLI::App* explain_command = AddCommand(&app, kExplain);
    explain_command->add_option("NAME", explain.name, "the property")->required();
    AddBootOptions(explain_command, &explain.boot);
    AddJson(explain_command, &explain.json);

    DiffArgs diff;
    std::vector<std::string> diff_trees;
    CLI::App* diff_command = AddCommand(&app, kDiff);
    AddBootOptions(diff_command, &diff.boot);
    diff_command->add_option("--root-b", diff.root_b, "the device tree B")
            ->type_name("DIR")
            ->check(kNotEmpty);
    diff_command->add_option("--props-b", diff.props_b, "B's system properties before boot")
            ->type_name("FILE")
            ->check(kNotEmpty);
    AddJson(diff_command, &diff.json);
    diff_command->add_option("TREES", diff_trees)->group("")->expected(0, 2);

    CheckArgs check;
    CLI::App* check_command = AddCommand(&app, kCheck);
    check_command->add_option("--golden", check.golden_file, "the document boot wrote with its JSON option")
            ->type_name("FILE")
            ->required()
            ->check(kNotEmpty);
    AddBootOptions(check_command, &check.boot);
    check_command
            ->add_option("--ignore", check.ignored,
                         "leave out the properties and log messages GLOB matches (repeatable)")
            ->type_name("GLOB")
            ->allow_extra_args(false);
    check_command->add_flag("--update", check.update, "write FILE from this boot instead");

    StateArgs state;
    CLI::App* state_command = AddCommand(&app, kState);
    AddBootOptions(state_command, &state.boot);
    AddJson(state_command, &state.json);

    LintArgs lint;
    std::vector<std::string> lint_tree;
    CLI::App* lint_command = AddCommand(&app, kLint);
    AddRoot(lint_command, &lint.tree);
    lint_command
            ->add_option("--props", lint.props_file,
                         "system properties for the imports' ${name}, one name=value a line")
            ->type_name("FILE")
            ->check(kNotEmpty);
    AddContexts(lint_command, &lint.property_contexts);
    lint_command->add_option("--disable", lint.disabled, "drop the findings of RULE (repeatable)")
            ->type_name("RULE")
            ->check(kNotEmpty);
    lint_command->add_flag("--werror", lint.werror, "warnings fail the run too (exit status 1)");
    lint_command
            ->add_option("--sarif", lint.sarif_file,
                         "also write the findings as a SARIF 2.1.0 log to FILE ('-': standard "
                         "output, instead of the text)")
            ->type_name("FILE")
            ->check(kNotEmpty);
    lint_command->add_flag("--overrides", lint.overrides,
                           "boot the tree and report, for each property defined in more than"
                           " one place, which file:line wins and which definitions are shadowed");
    CLI::Option* lint_host =
            lint_command->add_option("--host", lint.host,
                         "with --overrides: the init that receives the batches (default vendor)")
            ->type_name("vendor|aosp")
            ->check(kNotEmpty);
    AddJson(lint_command, &lint.json);
    lint_command->add_option("TREE", lint_tree)->group("")->expected(0, 1);

    ParseArgs parse;
    CLI::App* parse_command = AddCommand(&app, kParse);
    parse_command->add_option("FILE", parse.file, "the property file")
            ->required()
            ->check(kNotEmpty);
    AddRoot(parse_command, &parse.root);
    parse_command->add_option("--prop", parse.props, "a property for ${name} (repeatable)")
            ->type_name("NAME=VALUE")
            ->allow_extra_args(false);
    parse_command->add_option("--filter", parse.filter, "the parser's filter")
            ->type_name("FILTER")
            ->check(kNotEmpty);
    parse_command->add_flag("-v,--verbose", parse.verbose, "the parser's VERBOSE records too");
    AddJson(parse_command, &parse.json);

    if (argc < 2) {
        fputs(app.help().c_str(), stderr);
        return kExitError;
    }
    if (argc == 2 && strcmp(argv[1], "help") == 0) {
        fputs(app.help().c_str(), stdout);
        return kExitOk;
    }
    const bool known = std::any_of(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command* c) { return strcmp(c->name, argv[1]) == 0; });
    if (argv[1][0] != '-' && !known) {
        return Fail(std::string("unknown command '") + argv[1] + "' (see extprop-sim --help)");
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
        const std::vector<CLI::App*> given = app.get_subcommands();
        const std::string help = given.empty() ? "extprop-sim --help"
                                               : "extprop-sim " + given[0]->get_name() + " --help";
        return Fail(OneLine(e.what()) + " (see " + help + ")");
    }

    std::string error;
    if (boot_command->parsed()) return BootCommand(boot);
    if (explain_command->parsed()) return ExplainCommand(explain);
    if (parse_command->parsed()) return ParseCommand(parse);
    if (check_command->parsed()) return CheckCommand(check);
    if (state_command->parsed()) return StateCommand(state);
    if (diff_command->parsed()) {
        if (!TakeDeprecatedTrees(diff_trees, "diff --root TREE_A --root-b TREE_B",
                                 {&diff.boot.tree, &diff.root_b}, &error)) {
            return Fail(error);
        }
        return DiffCommand(diff);
    }
    if (!TakeDeprecatedTrees(lint_tree, "lint --root TREE", {&lint.tree}, &error)) {
        return Fail(error);
    }
    if (lint_host->count() != 0 && !lint.overrides) return Fail("lint takes --host with --overrides only");
    return lint.overrides ? LintOverridesCommand(lint) : LintCommand(lint);
}
