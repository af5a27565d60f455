#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarncli {

/// Rows of text in aligned columns, measured as a terminal shows them. Cells are escaped on the way in.
class Table {
public:
    enum class Align {
        left,
        right,
        prose, ///< left, and folded where the line would be too long; the last column
    };

    /// One entry per column; a table without headings prints rows only.
    explicit Table(std::vector<Align> columnAlignment, std::vector<std::string> headings = {});

    /// @pre as many cells as columns
    void add(std::vector<std::string> cells);

    /// One line per row, two spaces between columns, no space at the end of a line; nothing without rows.
    /// @param mostColumns  of the terminal; prose is folded to fit into them
    std::string text(std::optional<int> mostColumns = {}) const;

private:
    std::vector<int> widths() const;

    std::vector<Align> alignment;
    bool headed;
    std::vector<std::vector<std::string>> rows;
};

} // namespace tarncli
