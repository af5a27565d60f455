#pragma once

#include <cstdint>
#include <string>

namespace connector::tarn {

/// A link that opens an item for everybody who has it. Wire: the element names stand beside the fields; what is
/// missing or ambiguous stays empty.
struct PublicLink {
    std::string linkId;        ///< "PublicLinkId": names the link and does not open it
    std::u16string url;        ///< "PublicAccessUrl"
    std::uint64_t expires = 0; ///< "Expires": milliseconds since 1970, UTC; 0: it does not end
    std::string type;          ///< "Type": "FILE" or "FOLDER"
    std::u16string path;       ///< "Path" in "Resource"
    std::u16string bucket;     ///< "Bucket" in "Resource"
};

} // namespace connector::tarn
