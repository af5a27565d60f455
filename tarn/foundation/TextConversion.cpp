#include "tarn/foundation/platform/TextConversion.h"

#include <utf8.h>

#include <iterator>
#include <stdexcept>

namespace fl::i18n {
namespace {

void requireUtf8(const std::string& encoding)
{
    if (encoding != "UTF-8") throw std::invalid_argument("Unsupported text encoding: " + encoding);
}

} // namespace

codecvt_ustring_to_string::codecvt_ustring_to_string(const std::string& encoding, bool strict)
{
    requireUtf8(encoding);
    if (!strict) throw std::invalid_argument("Text conversion is always strict.");
}

codecvt_string_to_ustring::codecvt_string_to_ustring(const std::string& encoding)
{
    requireUtf8(encoding);
}

std::string to_string(const std::u16string& text, const codecvt_ustring_to_string&)
{
    std::string converted;
    converted.reserve(text.size());
    try {
        utf8::utf16to8(text.begin(), text.end(), std::back_inserter(converted));
    } catch (const utf8::exception&) {
        throw std::invalid_argument("The text is not well-formed UTF-16.");
    }
    return converted;
}

std::u16string to_ustring(const std::string& text, const codecvt_string_to_ustring&)
{
    std::u16string converted;
    converted.reserve(text.size());
    try {
        utf8::utf8to16(text.begin(), text.end(), std::back_inserter(converted));
    } catch (const utf8::exception&) {
        throw std::invalid_argument("The text is not well-formed UTF-8.");
    }
    return converted;
}

} // namespace fl::i18n
