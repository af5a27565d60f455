#pragma once

#include "tarn/protocol/ReplyLimits.h"

#include <string_view>

namespace connector::tarn::detail {

/// Whether `text` is well-formed XML that passes no limit, so that a DOM may be built of it.
///
/// Reads the text once without building anything and stops at the first limit passed: a hostile reply is refused at
/// a bounded cost before the DOM builder sees it, which can neither be stopped nor be thrown through.
bool isAcceptable(std::string_view text, const ReplyLimits& limits);

} // namespace connector::tarn::detail
