#include "cli/terminal/Table.h"

#include "cli/terminal/Text.h"

#include <algorithm>

namespace tarncli {

namespace {

/// Where hardly any columns are left for it, it goes on below.
void appendProse(std::string& line, const std::string& prose, std::optional<int> mostColumns)
{
    constexpr int least = 24;
    int indent = displayWidth(line);
    if (!mostColumns || indent + displayWidth(prose) <= *mostColumns) {
        line += prose;
        return;
    }
    const bool isBelow = *mostColumns - indent < least;
    if (isBelow) {
        indent = 4;
        line.erase(line.find_last_not_of(' ') + 1);
    }
    const auto margin = "\n" + std::string(static_cast<std::size_t>(indent), ' ');
    auto separator = isBelow ? margin : "";
    for (const auto& piece : foldedToWidth(prose, *mostColumns - indent)) {
        line += separator + piece;
        separator = margin;
    }
}

} // namespace

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

std::string Table::text(std::optional<int> mostColumns) const
{
    // Headings over nothing would be read as an answer.
    if (rows.size() <= (headed ? 1u : 0u)) return {};
    const auto columns = widths();
    std::string result;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(static_cast<std::size_t>(columns[i] - displayWidth(row[i])), ' ');
            if (alignment[i] == Align::prose)
                appendProse(line, row[i], mostColumns);
            else
                line += alignment[i] == Align::right ? padding + row[i] : row[i] + padding;
            line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        result += line + "\n";
    }
    return result;
}

} // namespace tarncli
