#include "cli/terminal/Text.h"

#include "cli/terminal/Failure.h"
#include "tarn/foundation/platform/TextConversion.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdio>

namespace tarncli {

namespace {

/// One code point, or one byte that begins none (then `codePoint` is negative).
struct Piece {
    utf8proc_int32_t codePoint;
    std::string_view bytes;
};

Piece takePiece(std::string_view& text)
{
    Piece piece{-1, text.substr(0, 1)};
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &piece.codePoint);
    if (length > 0)
        piece.bytes = text.substr(0, static_cast<std::size_t>(length));
    else
        piece.codePoint = -1;
    text.remove_prefix(piece.bytes.size());
    return piece;
}

/// Joiners belong to ordinary words and emoji; other format characters reorder or hide text.
bool isShownAsItIs(utf8proc_int32_t codePoint)
{
    if (codePoint == 0x200c || codePoint == 0x200d) return true;
    switch (utf8proc_category(codePoint)) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
        return false;
    default:
        return true;
    }
}

/// How much from the front is printable ASCII, which takes a column for each character: nearly always all of it.
std::size_t plainLength(std::string_view text)
{
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~' && c != '\\'; };
    return static_cast<std::size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
}

std::string formatted(const char* format, unsigned value)
{
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string escapedPiece(const Piece& piece)
{
    if (piece.codePoint < 0) return formatted("\\x%02x", static_cast<unsigned char>(piece.bytes.front()));
    switch (piece.codePoint) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    case '\\':
        return "\\\\";
    default:
        break;
    }
    if (isShownAsItIs(piece.codePoint)) return std::string(piece.bytes);
    return formatted("\\u{%x}", static_cast<unsigned>(piece.codePoint));
}

} // namespace

std::u16string toUtf16(const std::string& text)
{
    try {
        return fl::i18n::to_ustring(text, fl::i18n::codecvt_string_to_ustring("UTF-8"));
    } catch (const std::invalid_argument&) {
        throw usageError("\"" + escaped(text) + "\" is not valid UTF-8; the service takes no other names.");
    }
}

std::string toUtf8(const std::u16string& text)
{
    return fl::i18n::to_string(text, fl::i18n::codecvt_ustring_to_string("UTF-8", true));
}

bool isValidUtf8(std::string_view text)
{
    while (!text.empty())
        if (takePiece(text).codePoint < 0) return false;
    return true;
}

std::string escaped(std::string_view text)
{
    std::string result;
    for (;;) {
        const auto plain = plainLength(text);
        result += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) return result;
        result += escapedPiece(takePiece(text));
    }
}

int displayWidth(std::string_view text)
{
    int width = 0;
    for (;;) {
        const auto plain = plainLength(text);
        width += static_cast<int>(plain);
        text.remove_prefix(plain);
        if (text.empty()) return width;
        if (const auto piece = takePiece(text); piece.codePoint >= 0)
            width += utf8proc_charwidth(piece.codePoint);
    }
}

std::string cutToWidth(std::string_view text, int columns)
{
    if (displayWidth(text) <= columns) return std::string(text);
    std::string result;
    int width = 0;
    while (!text.empty()) {
        const auto piece = takePiece(text);
        if (piece.codePoint >= 0) width += utf8proc_charwidth(piece.codePoint);
        if (width > columns - 1) break;
        result += piece.bytes;
    }
    return columns > 0 ? result + "…" : "";
}

std::vector<std::string> foldedToWidth(std::string_view text, int columns)
{
    std::vector<std::string> lines(1);
    while (!text.empty()) {
        const auto word = text.substr(0, text.find(' ', 1)); // with the space before it
        if (!lines.back().empty() && displayWidth(lines.back()) + displayWidth(word) > columns)
            lines.emplace_back(word.substr(word.find_first_not_of(' ')));
        else
            lines.back() += word;
        text.remove_prefix(word.size());
    }
    return lines;
}

} // namespace tarncli
