#pragma once

#include <cstddef>

namespace connector::tarn {

/// How large a reply may be before it counts as not well-formed: reading it could take the process down.
///
/// The defaults bound what an XML reply takes from its arrival to the response, the copy of the body and the records
/// read included, to 768 MiB; a listing of 200,000 files, about 2.6 million nodes, passes.
struct ReplyLimits {
    std::size_t bytes = 64 * 1024 * 1024; ///< of the document, and of its text once entities are expanded
    std::size_t nodes = 2'750'000;        ///< elements, attributes, pieces of text, comments, ...
    std::size_t depth = 256;              ///< nesting of elements; the DOM's readers and destructors recurse
    std::size_t names = 500;              ///< distinct names; the DOM's name pool holds 509
    std::size_t nameLength = 4096; ///< bytes of a name or of its namespace, which is copied per element
    std::size_t entities = 100;    ///< declared; parsers recurse through chains of them
};

} // namespace connector::tarn
