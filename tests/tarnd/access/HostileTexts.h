#pragma once

#include <string>
#include <vector>

namespace tarnd::test {

/// A text that somebody might hope the service mistakes for something else.
struct HostileText {
    std::string label; ///< for messages
    std::string text;
    bool isName; ///< may name an item; otherwise it is refused as a name
};

const std::vector<HostileText>& hostileTexts();

} // namespace tarnd::test
