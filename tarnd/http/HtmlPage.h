#pragma once

#include "tarnd/http/Reply.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnd {

/// `text` as it may stand between tags and in quoted attributes.
std::string htmlEscape(std::string_view text);

/// A name, kept from rearranging what stands beside it when it is written from right to left. Characters that would
/// turn the direction within it are shown as unknown ones.
std::string htmlName(std::string_view name);

/// "1.4 MiB", with the exact number for programs.
std::string htmlSize(std::int64_t bytes);

/// Date and time in UTC. @param milliseconds  since 1970
std::string htmlTime(std::int64_t milliseconds);

/// Where a page stands among the others of its link. Links are relative, so that they hold behind any public address,
/// and begin with a dot, so that no name is taken for a scheme.
struct PagePlace {
    std::string base; ///< before the name of an entry
    std::string up;   ///< to the folder that this is in; empty where the link begins
};

/// The line of links above what a page shows.
/// @param label  of the link that fetches it: "?download"
std::string htmlActions(const PagePlace& place, std::string_view label);

/// A page for people, with its look inside and without any script. It loads pictures and documents from its own
/// service and nothing else.
/// @param body  HTML that follows the title
Reply htmlPage(unsigned status, std::string_view title, const std::string& body);

/// The link is the secret: it must not reach other sites as referrer, nor a content run as script in this origin.
/// @param policy  value of Content-Security-Policy
void addSafetyHeaders(Reply& reply, std::string_view policy);

} // namespace tarnd
