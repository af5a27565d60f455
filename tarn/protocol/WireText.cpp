#include "tarn/protocol/WireText.h"

#include "tarn/foundation/platform/TextConversion.h"

namespace connector::tarn {

std::string toWire(const std::u16string& text)
{
    return fl::i18n::to_string(text, fl::i18n::codecvt_ustring_to_string("UTF-8", true));
}

std::u16string fromWire(const std::string& text)
{
    return fl::i18n::to_ustring(text, fl::i18n::codecvt_string_to_ustring("UTF-8"));
}

} // namespace connector::tarn
