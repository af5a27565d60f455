#pragma once

#include "tarnd/http/HtmlPage.h"
#include "tarnd/http/Request.h"
#include "tarnd/store/Item.h"

namespace tarnd {

/// A file with its size, its date, a preview of what is a picture, a PDF document or text, and a link to its bytes.
Reply filePage(OpenContent& content, const PagePlace& place);

/// A picture or a PDF document for the page that shows it, by its first bytes and not by its name: the types that
/// browsers show and cannot run. Anything else comes as download() has it.
Reply preview(const Request& request, OpenContent content);

/// The bytes, to be kept and not to be shown.
Reply download(const Request& request, OpenContent content);

} // namespace tarnd
