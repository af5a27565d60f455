#pragma once

#include "tarn/protocol/ReplyLimits.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace connector::tarn::detail {

/// How many names a DOM of `text` needs room for, told from its angle brackets; nothing when that cannot tell.
///
/// It can for elements without attributes, with text between them, below a declaration at most: what a service
/// sends. Of such a text nothing can grow while it is read, so it is safe to build a DOM of, well-formed or not, once
/// it passes no limit. Many times as fast as parsing.
std::optional<std::size_t> namesInPlain(std::string_view text, const ReplyLimits& limits);

} // namespace connector::tarn::detail
