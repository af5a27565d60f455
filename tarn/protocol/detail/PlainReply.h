#pragma once

#include "tarn/protocol/ReplyLimits.h"

#include <Poco/AutoPtr.h>
#include <Poco/DOM/Document.h>

#include <string_view>

namespace connector::tarn::detail {

/// The DOM of `text` when it is plain and without namespaces; null when it is anything else, is not well-formed or
/// passes a limit: the general reader then tells which. Poco's own takes longer to be made than to read most replies.
Poco::AutoPtr<Poco::XML::Document> plainDocument(std::string_view text, const ReplyLimits& limits);

} // namespace connector::tarn::detail
