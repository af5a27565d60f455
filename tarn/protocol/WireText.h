#pragma once

#include "tarn/foundation/Export.h"

#include <string>

namespace connector::tarn {

/// UTF-16 text of a message as it goes on the wire. @throws std::invalid_argument when it is malformed
TARN_API std::string toWire(const std::u16string& text);

/// UTF-8 text of a reply as it goes into a message. @throws std::invalid_argument when it is malformed
TARN_API std::u16string fromWire(const std::string& text);

/// "true" or "false".
inline const char* toWire(bool flag)
{
    return flag ? "true" : "false";
}

/// True for exactly "true"; every other text, capitalised forms included, is false.
inline bool flagFromWire(const std::string& text)
{
    return text == "true";
}

} // namespace connector::tarn
