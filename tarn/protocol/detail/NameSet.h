#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace connector::tarn::detail {

struct NameHash {
    using is_transparent = void;

    std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
};

/// Names that can be looked for without a copy of each.
using NameSet = std::unordered_set<std::string, NameHash, std::equal_to<>>;

} // namespace connector::tarn::detail
