#pragma once

#include "tarn/protocol/ReplyLimits.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace connector::tarn::detail {

/// What the builder of a DOM has to know beforehand.
struct ReplyShape {
    std::size_t names; ///< how many it needs room for
    bool isPlain;      ///< elements without attributes or namespaces, and text between them
};

/// The shape of `text`; nothing when a DOM must not be built of it, since it passes a limit or is not well-formed XML.
/// What is neither but cannot grow while it is read is left to the DOM's parser.
///
/// Reads the text once without building anything and stops at the first limit passed: a hostile reply is refused at
/// a bounded cost before the DOM builder sees it, which can neither be stopped nor be thrown through.
std::optional<ReplyShape> shapeOf(std::string_view text, const ReplyLimits& limits);

} // namespace connector::tarn::detail
