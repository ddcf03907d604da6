// SPDX-License-Identifier: Apache-2.0
// extprop-sim: boots libzelvaextproperty against a device tree on a Linux
// machine and shows what init would receive. Here: the command line, the
// same option spelled the same way on every command.

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <CLI/CLI.hpp>

#include "build_config.h"
#include "command_texts.h"
#include "commands.h"
#include "printable.h"

namespace extprop_sim {
namespace {

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
    check_command
            ->add_option("--html", check.html_file,
                         "when the check fails, write the boot's page (as boot --html) to PAGE")
            ->type_name("PAGE")
            ->check(kNotEmpty);

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
    lint_command->add_flag("--no-boot", lint.no_boot,
                           "don't boot the tree: no unread-file nor failed-read findings");
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
