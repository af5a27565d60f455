#pragma once

#include "tarnd/http/HtmlPage.h"
#include "tarnd/store/Item.h"

#include <string_view>

namespace tarnd {

/// The entries of a folder with sizes and dates, folders first.
/// @param sort  "name", "size" or "date", "-" before it for the other way round; anything else is "name"
Reply folderPage(const Listing& listing, const PagePlace& place, std::string_view sort);

} // namespace tarnd
