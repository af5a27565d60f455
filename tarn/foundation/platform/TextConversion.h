#pragma once

#include "tarn/foundation/Export.h"

#include <string>

/// Conversion between the UTF-16 text of messages and the UTF-8 text of the wire.
namespace fl::i18n {

/// Converts from UTF-16 to the encoding named; only "UTF-8" exists.
class TARN_API codecvt_ustring_to_string {
public:
    /// @param strict  true: malformed text is an error. There is no other mode, and false is refused
    /// @throws std::invalid_argument for any other encoding or mode
    codecvt_ustring_to_string(const std::string& encoding, bool strict);
};

/// Converts from the encoding named to UTF-16; only "UTF-8" exists.
class TARN_API codecvt_string_to_ustring {
public:
    /// @throws std::invalid_argument for any other encoding
    explicit codecvt_string_to_ustring(const std::string& encoding);
};

/// @throws std::invalid_argument when `text` is not well-formed UTF-16, such as a lone surrogate: replacing it
///   silently would name another object
TARN_API std::string to_string(const std::u16string& text, const codecvt_ustring_to_string& converter);

/// @throws std::invalid_argument when `text` is not well-formed UTF-8
TARN_API std::u16string to_ustring(const std::string& text, const codecvt_string_to_ustring& converter);

} // namespace fl::i18n
