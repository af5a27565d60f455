#pragma once

#include "cli/service/Connection.h"
#include "tarn/publiclinks/PublicLink.h"

#include <string>
#include <vector>

namespace tarncli {

/// The links of the user that have not ended. @throws what the request fails with
std::vector<connector::tarn::PublicLink> listLinks(Connection& connection);

/// Those of `links` that `what` means: the URL of one or of something below it, the path of an item, or an id.
/// @throws Failure (usage) for a path that is none
std::vector<connector::tarn::PublicLink> chooseLinks(const std::vector<connector::tarn::PublicLink>& links,
                                                     const std::string& what, const std::string& user);

/// Whether the URL leads to the machine it is opened on.
bool isForThisMachineOnly(const std::string& url);

} // namespace tarncli
