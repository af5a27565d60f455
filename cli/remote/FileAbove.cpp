#include "cli/remote/FileAbove.h"

#include "cli/remote/Requests.h"

namespace tarncli {

Failure withFileAbove(Connection& connection, const RemotePath& item, const Failure& failure)
{
    if (failure.code() != ExitCode::notFound) return failure;
    try {
        for (auto above = item; !above.isRoot();) {
            above = above.parent();
            const auto found = findAttributes(connection, above);
            if (!found) continue;
            if (isFolder(*found)) return failure;
            return Failure(ExitCode::conflict, above.quoted() + " is a file; nothing can be stored below it.")
                .on(failure.item());
        }
    } catch (const std::exception&) { // what failed first says more
    }
    return failure;
}

} // namespace tarncli
