// SPDX-License-Identifier: Apache-2.0
// The boot page of a bundled example as a real browser renders it: headless
// Chromium loads it, runs its script (here a filter given in the address)
// and dumps the resulting DOM, which is checked for the grid and a known
// property with the file:line it came from.

#include <regex>

#include <gmock/gmock.h>

#include "sim_tool_support.h"

namespace zelva_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::Field;
using testing::HasSubstr;
using testing::Pair;

constexpr char kChromium[] = "/usr/bin/chromium";

struct Row {
    bool hidden;
    std::vector<std::string> cells;
    bool operator==(const Row&) const = default;
};

void PrintTo(const Row& row, std::ostream* os) {
    *os << (row.hidden ? "hidden " : "") << testing::PrintToString(row.cells);
}

// The rows of the table with |id| in the dumped DOM.
std::vector<Row> TableRows(const std::string& dom, const std::string& id) {
    std::vector<Row> rows;
    const size_t begin = dom.find("<table id=\"" + id + "\"");
    if (begin == std::string::npos) return rows;
    const std::string table = dom.substr(begin, dom.find("</table>", begin) - begin);
    static const std::regex kRow("<tr( hidden=\"\")?[^>]*>([\\s\\S]*?)</tr>");
    static const std::regex kCell("<t[dh][^>]*>([\\s\\S]*?)</t[dh]>");
    for (auto row = std::sregex_iterator(table.begin(), table.end(), kRow);
         row != std::sregex_iterator(); ++row) {
        Row parsed{(*row)[1].matched, {}};
        const std::string inner = (*row)[2];
        for (auto cell = std::sregex_iterator(inner.begin(), inner.end(), kCell);
             cell != std::sregex_iterator(); ++cell) {
            parsed.cells.push_back((*cell)[1]);
        }
        rows.push_back(std::move(parsed));
    }
    return rows;
}

// The grid's row for |name|: partition -> its mark, for the cells that have one.
std::map<std::string, std::string> GridMarks(const std::vector<Row>& grid,
                                             const std::string& name) {
    std::map<std::string, std::string> marks;
    if (grid.empty()) return marks;
    for (const Row& row : grid) {
        if (row.cells.empty() || row.cells[0] != name) continue;
        for (size_t c = 1; c < row.cells.size() && c < grid[0].cells.size(); ++c) {
            if (!row.cells[c].empty()) marks[grid[0].cells[c]] = row.cells[c];
        }
    }
    return marks;
}

class HtmlBrowserTest : public SimToolTest {};

TEST_F(HtmlBrowserTest, ChromiumRendersTheGridAndFiltersTheExamplesProperties) {
    if (access(kChromium, X_OK) != 0) {
        if (InCi()) FAIL() << kChromium << " is missing (scripts/install-deps.sh installs it)";
        GTEST_SKIP() << kChromium << " is not installed";
    }
    TemporaryDir dir;
    const std::string page = std::string(dir.path) + "/alder-eu.html";
    const SimulatorRun boot = RunSimulator(
            {"boot", "--root", "alder-eu", "--props", "alder-eu.props", "--html", page});
    ASSERT_EQ(boot.status, 0) << boot.err;

    const std::string dom_file = std::string(dir.path) + "/dom.html";
    const std::string command =
            std::string("timeout 60 ") + kChromium +
            " --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --user-data-dir=" + dir.path +
            "/profile --dump-dom 'file://" + page + "#filter=locale.default' >" + dom_file +
            " 2>/dev/null";
    ASSERT_EQ(system(command.c_str()), 0) << command;
    std::string dom;
    ASSERT_TRUE(android::base::ReadFileToString(dom_file, &dom));

    // The filter from the address ran: only the matching row is shown, and
    // the others are still there, hidden.
    const std::vector<Row> properties = TableRows(dom, "properties");
    EXPECT_THAT(properties,
                Contains(Row{false,
                             {"persist.sys.locale.default", "de-DE",
                              "/mnt/vendor/my_region/properties/DE/regionSwitch/region.prop:1"}}));
    EXPECT_THAT(properties, Contains(Row{true,
                                         {"ro.product.model", "Alder X1 EU",
                                          "/mnt/vendor/my_product/cust/EU/build.prop:1"}}));
    std::vector<Row> shown;  // below the header
    for (size_t r = 1; r < properties.size(); ++r) {
        if (!properties[r].hidden) shown.push_back(properties[r]);
    }
    EXPECT_THAT(shown, AllOf(testing::SizeIs(1),
                             Each(Field(&Row::cells, Contains(HasSubstr("locale.default"))))));

    const std::vector<Row> grid = TableRows(dom, "grid");
    EXPECT_THAT(GridMarks(grid, "ro.product.model"), testing::ElementsAre(Pair("my_product", "W")));
    EXPECT_THAT(GridMarks(grid, "persist.sys.locale.default"),
                testing::ElementsAre(Pair("my_region", "W")));
}

}  // namespace
}  // namespace zelva_test
