#pragma once

#include <expat.h>

#include <memory>
#include <type_traits>

namespace connector::tarn::detail {

struct ExpatRelease {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

/// A parser of expat's C interface with an owner.
using ExpatParser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ExpatRelease>;

} // namespace connector::tarn::detail
