#pragma once

#include "tarn/protocol/ReplyLimits.h"

#include <Poco/AutoPtr.h>
#include <Poco/DOM/Document.h>

#include <string_view>

namespace connector::tarn::detail {

/// The DOM of `text` when it is plain: elements without attributes or namespaces, with text between them, below a
/// declaration at most. Null when it is anything else, is not well-formed or passes a limit; the general reader
/// then tells which.
///
/// Nearly every reply is plain, and most are short: Poco's parser takes longer to be made and put away than to read
/// one of those, so this one is kept. Of such a text nothing can grow while it is read: limits are kept on the way.
/// @pre `text` is no longer than an int can tell
Poco::AutoPtr<Poco::XML::Document> plainDocument(std::string_view text, const ReplyLimits& limits);

} // namespace connector::tarn::detail
