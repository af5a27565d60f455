#pragma once

#include <cstddef>

namespace connector::tarn {

/// How large a reply may be before it counts as not well-formed: reading it could take the process down.
struct ReplyLimits {
    std::size_t depth = 256;        ///< nesting of elements; the DOM's readers and destructors recurse
    std::size_t names = 500;        ///< distinct names; the DOM's name pool holds 509
    std::size_t nodes = 10'000'000; ///< elements, attributes, texts, comments, ...; about 100 bytes each
};

} // namespace connector::tarn
