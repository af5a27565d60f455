#include "cli/terminal/NearestName.h"

#include <algorithm>
#include <numeric>

namespace tarncli {

namespace {

/// Characters to insert, delete or replace on the way from one text to the other.
std::size_t distance(std::string_view from, std::string_view to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char c : from) {
        std::size_t diagonal = row[0]++;
        for (std::size_t i = 0; i < to.size(); ++i) {
            const auto replaced = diagonal + (c == to[i] ? 0 : 1);
            diagonal = row[i + 1];
            row[i + 1] = std::min({replaced, row[i] + 1, row[i + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string nearestName(std::string_view text, const std::vector<std::string>& names)
{
    std::string nearest;
    // Half of the letters may be wrong; a distance as long as the longer word means nothing in common.
    auto best = std::max<std::size_t>(2, text.size() / 2) + 1;
    for (const auto& name : names)
        if (const auto d = distance(text, name); d < best && d < std::max(text.size(), name.size())) {
            best = d;
            nearest = name;
        }
    return nearest;
}

} // namespace tarncli
