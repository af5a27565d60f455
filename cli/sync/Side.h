#pragma once

#include "cli/service/Connection.h"
#include "cli/sync/Filter.h"
#include "cli/terminal/Failure.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

/// What lies on the two sides of a synchronisation, here and in the service, told in the same terms.
namespace tarncli {

struct RemotePath;

/// How a file is, as far as it can be told without reading it: another state, another content.
struct FileState {
    std::uint64_t size = 0;     ///< bytes
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    std::string watermark = {}; ///< of a stored file; empty here

    bool operator==(const FileState&) const = default;
};

struct Item {
    bool isFolder = false;
    FileState state = {}; ///< of a file
};

/// One of the two folders with all below it. Places are UTF-8 names from the folder down, joined by '/'.
struct Side {
    struct LeftOut {
        std::string place;
        std::string reason;
        bool isFailure = false; ///< it should have been synchronised
    };

    bool exists = true;
    std::map<std::string, Item> items;
    /// What is there and cannot be dealt with, or could not be looked at: neither it nor anything below it is touched.
    std::vector<LeftOut> leftOut;
    std::set<std::string> filtered; ///< what the filter does not want

    bool hasFile(const std::string& place) const
    {
        const auto found = items.find(place);
        return found != items.end() && !found->second.isFolder;
    }

    bool isUnseen(const std::string& place) const
    {
        return filtered.contains(place) ||
               std::ranges::find(leftOut, place, &LeftOut::place) != leftOut.end();
    }
};

/// @throws Failure when there is something else in its place, or it cannot be read
Side lookAt(const std::filesystem::path& folder, const Filter& filter);

/// Likewise; one listing for each folder.
Side lookAt(Connection& connection, Output& out, const RemotePath& folder, const Filter& filter);

/// "a/b" of "a/b/c"; empty at the top.
std::string placeAbove(const std::string& place);

/// All places above this one, its own first.
template <class Visit>
bool anyUpwards(std::string place, Visit visit)
{
    for (; !place.empty(); place = placeAbove(place))
        if (visit(place)) return true;
    return false;
}

} // namespace tarncli
