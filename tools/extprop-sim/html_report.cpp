// SPDX-License-Identifier: Apache-2.0
#include "html_report.h"

#include <cerrno>
#include <cstring>
#include <set>

#include <android-base/file.h>

#include "batch_effects.h"
#include "boot_sequence.h"
#include "html_page_assets.h"
#include "init_sink.h"
#include "json.h"
#include "printable.h"

namespace extprop_sim {
namespace {

// Rows of the property table and of the grid: a page a browser still opens
// on a tree with a build.prop of half a million lines.
constexpr size_t kMaxRows = 20000;
// Entries of one batch shown, of those init set and of those it refused each;
// refusals listed at the top of the page.
constexpr size_t kMaxBatchEntries = 1000;
// Rows of the grid for properties that only one place defines.
constexpr size_t kMaxSingleRows = 2000;

const char* EffectName(Effect::What what) {
    static constexpr const char* kNames[] = {"new", "changed", "same", "cleared", "refused"};
    return kNames[what];
}

std::string StepName(const BootResult& result, int step) {
    if (step < 0 || step >= static_cast<int>(result.steps.size())) return "outside the steps";
    return "step " + std::to_string(step) + " " + result.steps[step].Describe();
}

std::string BatchName(const BootResult& result, size_t b) {
    const sandbox::Batch& batch = result.outcome.batches[b];
    return "batch of " + StepName(result, StepIndex(batch.step)) + ", " +
           (batch.kind == kFilledMapKind ? std::string("map")
                                         : "kind " + std::to_string(batch.kind));
}

// Where the value a property ends the boot with came from.
std::string Provenance(const BootConfig& config, const BootResult& result,
                       const DefinitionsModel& model, const std::string& name,
                       const std::string& value) {
    if (auto it = model.properties.find(name); it != model.properties.end()) {
        const PropertyDefinitions& property = it->second;
        if (property.winner) return Place(property.definitions[*property.winner]);
        if (property.batch) return BatchName(result, *property.batch);
    }
    for (size_t b = result.outcome.batches.size(); b-- > 0;) {
        auto entry = result.outcome.batches[b].props.find(name);
        if (entry != result.outcome.batches[b].props.end() && entry->second == value &&
            !RefusalOf(result.outcome, b, name)) {
            return BatchName(result, b);
        }
    }
    if (auto seeded = config.properties.find(name);
        seeded != config.properties.end() && seeded->second == value) {
        return "--props";
    }
    return "set in the device, by no batch";
}

void AppendSteps(const BootConfig& config, const BootResult& result, std::string* out) {
    const sandbox::Outcome& outcome = result.outcome;
    const auto effects = ReplayBatches(config, result);
    const std::vector<int> boots = BootNumbers(result.steps);
    *out += "<h2>Steps and batches</h2>\n<div id=\"steps\">\n";
    for (size_t i = 0; i < result.steps.size(); ++i) {
        if (boots.back() > 1 && (i == 0 || boots[i] != boots[i - 1])) {
            *out += "<div class=\"boot\">Boot " + std::to_string(boots[i]) + "</div>\n";
        }
        const Step& step = result.steps[i];
        *out += "<div class=\"step\" id=\"step-" + std::to_string(i) + "\"><b>" +
                HtmlText(step.Describe()) + "</b>";
        if (auto note = outcome.notes.find(std::to_string(i)); note != outcome.notes.end()) {
            *out += " <span class=\"mono\">result: " + HtmlText(note->second) + "</span>";
        }
        *out += "\n";
        for (size_t b = 0; b < outcome.batches.size(); ++b) {
            const sandbox::Batch& batch = outcome.batches[b];
            if (StepIndex(batch.step) != static_cast<int>(i)) continue;
            *out += "<table class=\"batch\"><tr><th>slot</th><th>operation</th><th>kind</th>"
                    "<th>name</th><th>value</th><th>init</th></tr>\n";
            const std::string slot =
                    step.kind == Step::Kind::kSlot ? std::to_string(step.slot) : "";
            const std::string operation =
                    step.kind == Step::Kind::kSlot ? OperationName(step.slot) : "";
            const std::string kind =
                    batch.kind == kFilledMapKind ? "map" : std::to_string(batch.kind);
            size_t entry = 0, counts[2] = {};
            for (const auto& [name, value] : batch.props) {
                const Effect& effect = effects[b][entry++];
                const bool refused = effect.what == Effect::kRefused;
                if (counts[refused]++ >= kMaxBatchEntries) continue;
                *out += std::string(refused ? "<tr class=\"refused\">" : "<tr>") + "<td>" + slot +
                        "</td><td>" + operation + "</td><td>" + kind + "</td><td class=\"mono\">" +
                        HtmlText(name) + "</td><td class=\"mono\">" + HtmlText(value) +
                        "</td><td class=\"effect-" + EffectName(effect.what) + "\">" +
                        EffectName(effect.what) +
                        (refused ? ": " + HtmlText(std::string(effect.reason)) : std::string()) + "</td></tr>\n";
            }
            *out += "</table>\n";
            for (const size_t count : counts) {
                if (count > kMaxBatchEntries) {
                    *out += "<p>" + std::to_string(count - kMaxBatchEntries) +
                            (&count == &counts[1] ? " more refused" : " more") +
                            " entries not shown.</p>\n";
                }
            }
        }
        *out += "</div>\n";
    }
    *out += "</div>\n";
}

void AppendRefusals(const BootResult& result, std::string* out) {
    std::string items;
    size_t count = 0;
    for (size_t b = 0; b < result.outcome.batches.size(); ++b) {
        for (const auto& [name, reason] : RefusalsOf(result.outcome, b)) {
            if (count++ >= kMaxBatchEntries) continue;
            items += "<li><span class=\"mono\">" + HtmlText(std::string(name)) + "</span> in the " +
                     HtmlText(BatchName(result, b)) + ": " + HtmlText(std::string(reason)) +
                     "</li>\n";
        }
    }
    *out += "<h2>Refused by init (" + std::to_string(count) + ")</h2>\n";
    *out += count == 0 ? "<p>Init set every entry it was handed.</p>\n"
                       : "<ul class=\"refusals\" id=\"refusals\">\n" + items + "</ul>\n";
    if (count > kMaxBatchEntries) {
        *out += "<p>" + std::to_string(count - kMaxBatchEntries) + " more not listed.</p>\n";
    }
}

void AppendProperties(const BootConfig& config, const BootResult& result,
                      const DefinitionsModel& model, std::string* out) {
    const PropertyMap& properties = result.outcome.properties;
    *out += "<h2>Properties after boot (" + std::to_string(properties.size()) +
            ")</h2>\n<p><input id=\"filter\" type=\"search\" placeholder=\"filter: name, value or "
            "file\" aria-label=\"filter\"> <span id=\"shown\">" +
            std::to_string(std::min(properties.size(), kMaxRows)) +
            "</span> shown</p>\n<table id=\"properties\"><thead><tr><th>name</th><th>value</th>"
            "<th>from</th></tr></thead><tbody>\n";
    size_t rows = 0;
    for (const auto& [name, value] : properties) {
        if (rows++ == kMaxRows) break;
        *out += "<tr><td class=\"mono\">" + HtmlText(name) + "</td><td class=\"mono\">" +
                HtmlText(value) + "</td><td class=\"mono\">" +
                HtmlText(Provenance(config, result, model, name, value)) + "</td></tr>\n";
    }
    *out += "</tbody></table>\n";
    if (properties.size() > kMaxRows) {
        *out += "<p>" + std::to_string(properties.size() - kMaxRows) + " more not shown.</p>\n";
    }
}

void AppendGrid(const DefinitionsModel& model, std::string* out) {
    std::vector<std::string> partitions;  // in the order the boot first loaded them
    for (const auto& [name, property] : model.properties) {
        for (const Definition& definition : property.definitions) {
            const std::string partition = PartitionOf(definition.file);
            if (std::find(partitions.begin(), partitions.end(), partition) == partitions.end()) {
                partitions.push_back(partition);
            }
        }
    }
    std::sort(partitions.begin(), partitions.end());
    *out += "<h2>Which partition defines what</h2>\n<p>W: the definition init's value came "
            "from; D: a definition shadowed or of the same value (hover for file:line and "
            "value). Rows: properties defined in more than one place. <label><input "
            "type=\"checkbox\" id=\"all-rows\"> every "
            "property</label></p>\n<div class=\"scroll\"><table "
            "id=\"grid\"><thead><tr><th>property</th>";
    for (const std::string& partition : partitions) *out += "<th>" + HtmlText(partition) + "</th>";
    *out += "</tr></thead><tbody>\n";
    size_t rows = 0, singles = 0;
    for (const auto& [name, property] : model.properties) {
        if (property.definitions.empty() ||
            property.definitions[0].state == Definition::State::kNotHandedOver) {
            continue;
        }
        const bool single = property.definitions.size() < 2;
        if (single && singles++ >= kMaxSingleRows) continue;
        if (rows++ == kMaxRows) break;
        // partition -> whether it holds the winner, its definitions
        std::map<std::string, std::pair<bool, std::vector<std::string>>> cells;
        for (const Definition& definition : property.definitions) {
            auto& [wins, title] = cells[PartitionOf(definition.file)];
            wins = wins || definition.state == Definition::State::kWins;
            title.push_back(Place(definition) + " = " + definition.value + " (" +
                            StateName(definition.state) + ")");
        }
        *out += std::string(single ? "<tr class=\"single\">" : "<tr>") + "<td class=\"mono\">" +
                HtmlText(name) + "</td>";
        for (const std::string& partition : partitions) {
            auto cell = cells.find(partition);
            if (cell == cells.end()) {
                *out += "<td class=\"cell\"></td>";
                continue;
            }
            const bool wins = cell->second.first;
            // The title keeps its line feeds: a tooltip of one definition a line.
            std::string title;
            for (const std::string& line : cell->second.second) title += HtmlText(line) + "&#10;";
            *out += std::string("<td class=\"cell ") + (wins ? "wins" : "defines") + "\" title=\"" +
                    title + "\">" + (wins ? "W" : "D") + "</td>";
        }
        *out += "</tr>\n";
    }
    *out += "</tbody></table></div>\n";
    for (const auto& [file, size] : model.left_out) {
        *out += "<p>Not examined: <span class=\"mono\">" + HtmlText(file) + "</span> (" +
                std::to_string(size) + " bytes, over the budget of what a boot brings back).</p>\n";
    }
}

}  // namespace

std::string HtmlText(const std::string& bytes) {
    const std::string text = ReplaceInvalidUtf8(Printable(bytes));
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string HtmlReport(const BootConfig& config, const BootResult& result,
                       const DefinitionsModel& model) {
    std::string out =
            "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<title>extprop-sim boot of " +
            HtmlText(config.tree) + "</title>\n<style>" + kHtmlPageStyle +
            "</style></head><body>\n<h1>Boot of <span class=\"mono\">" + HtmlText(config.tree) +
            "</span></h1>\n<p class=\"summary\">Library <span "
            "class=\"mono\">" +
            HtmlText(config.library) + "</span>; " + HostModeName(config.init.host) +
            " init; property contexts: <span class=\"mono\">" +
            HtmlText(ContextsInUse(result.outcome)) + "</span>; " +
            std::to_string(result.steps.size()) + " steps, " +
            std::to_string(result.outcome.batches.size()) + " batches, " +
            std::to_string(result.outcome.properties.size()) + " properties after boot.</p>\n";
    AppendRefusals(result, &out);
    AppendGrid(model, &out);
    AppendProperties(config, result, model, &out);
    AppendSteps(config, result, &out);
    out += std::string("<script>") + kHtmlPageScript + "</script>\n</body></html>\n";
    return out;
}

bool WriteHtmlReport(const std::string& path, const BootConfig& config, const BootResult& result,
                     const DefinitionsModel& model, std::string* error) {
    if (!android::base::WriteStringToFile(HtmlReport(config, result, model), path)) {
        *error = "cannot write " + path + ": " + strerror(errno);
        return false;
    }
    return true;
}

}  // namespace extprop_sim
