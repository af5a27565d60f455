#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"

#include <string>
#include <vector>

namespace tarncli {

/// Who may do what, and why.
struct Right {
    std::string user;
    std::string may;
    std::string because;
    std::string grantId = {}; ///< empty: it needs no grant
};

/// Of an item of the user's own: everybody's. @throws what the requests fail with
std::vector<Right> rightsToOwn(Connection& connection, const RemotePath& item);

/// Of another's item one knows what one may do there oneself, and what was shared for that.
/// @throws what the requests fail with; Failure (notFound) where one may see nothing
Right rightTo(Connection& connection, const RemotePath& item);

/// What the user may do with the item, in a sentence for one who was refused: "bob may read it: alice shares /docs."
/// Empty when it is the user's own, or the service does not let that be asked, or does not answer soon.
/// @param item  as Failure::item()
std::string rightsSentence(ConnectionOptions options, Output& out, const std::string& item);

} // namespace tarncli
