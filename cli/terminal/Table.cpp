#include "cli/terminal/Table.h"

#include "cli/terminal/Text.h"

#include <algorithm>

namespace tarncli {

Table::Table(std::vector<Align> columnAlignment, std::vector<std::string> headings)
    : alignment(std::move(columnAlignment)), headed(!headings.empty())
{
    if (headed) add(std::move(headings));
}

void Table::add(std::vector<std::string> cells)
{
    std::transform(cells.begin(), cells.end(), cells.begin(),
                   [](const std::string& cell) { return escaped(cell); });
    rows.push_back(std::move(cells));
}

std::vector<int> Table::widths() const
{
    std::vector<int> result(alignment.size(), 0);
    for (const auto& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            result[i] = std::max(result[i], displayWidth(row[i]));
    return result;
}

std::string Table::text() const
{
    // Headings over nothing would be read as an answer.
    if (rows.size() <= (headed ? 1u : 0u)) return {};
    const auto columns = widths();
    std::string result;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(static_cast<std::size_t>(columns[i] - displayWidth(row[i])), ' ');
            line += alignment[i] == Align::right ? padding + row[i] : row[i] + padding;
            line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        result += line + "\n";
    }
    return result;
}

} // namespace tarncli
