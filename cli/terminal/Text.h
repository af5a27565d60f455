#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarncli {

/// UTF-8 to the UTF-16 of the messages. @throws Failure (usage) when it is not valid UTF-8
std::u16string toUtf16(const std::string& text);

/// UTF-16 of a message to UTF-8. @throws std::invalid_argument when it is malformed
std::string toUtf8(const std::u16string& text);

bool isValidUtf8(std::string_view text);

/// `text` fit for a terminal and one line: control characters, characters that reorder text, backslashes and
/// bytes that are not UTF-8 as `\n`, `\u{202e}`, `\\`, `\xff`. Different texts stay different.
std::string escaped(std::string_view text);

/// Columns that `text` takes on a terminal.
int displayWidth(std::string_view text);

/// The longest start of `text` that takes at most `columns`, marked with an ellipsis when something is left out.
std::string cutToWidth(std::string_view text, int columns);

/// Lines of at most `columns`, broken at spaces; a word that is longer stands alone. @return one line at least
std::vector<std::string> foldedToWidth(std::string_view text, int columns);

} // namespace tarncli
