#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarncli {

/// The name that `text` is most likely a slip of; empty when none is near.
std::string nearestName(std::string_view text, const std::vector<std::string>& names);

} // namespace tarncli
