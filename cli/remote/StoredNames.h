#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Names that the service cannot be asked for, written so that it can.
///
/// With it, each byte of '?', '#' and control characters is stored as "%" and two digits ("%3F", "%23", "%0A", "%C2%85"),
/// and a '%' that would be read as the beginning of such a code as "%25". All other names stay as they are.
namespace tarncli {

/// For this process; off at first. Set before names are read.
void encodeNames(bool on);
bool namesAreEncoded();

/// One that the service takes in no name: U+0000 to U+001F, U+007F to U+009F, and U+FFFE and U+FFFF with them.
bool hasControlCharacter(std::string_view name);

/// As the name is stored; '/' separates names. Without the encoding the same.
std::string encodedName(std::string_view name);

/// What the user calls a stored name; one that the encoding would not have made stays as it is.
std::string decodedName(std::string_view stored);

/// Likewise. Nothing for one that the encoding would not have made: stored again, it would be another.
std::optional<std::string> nameOfStored(std::string_view stored);

} // namespace tarncli
