#pragma once

#include "tarn/protocol/ReplyLimits.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace connector::tarn::detail {

/// How many names a DOM of `text` needs room for; nothing when none must be built of it, since it passes a limit or is
/// not well-formed XML.
///
/// Reads the text once without building anything and stops at the first limit passed: a hostile reply is refused at
/// a bounded cost before Poco's DOM parser sees it, which can neither be stopped nor be thrown through.
/// @pre `text` is no longer than an int can tell
std::optional<std::size_t> namesIn(std::string_view text, const ReplyLimits& limits);

} // namespace connector::tarn::detail
