#include "cli/sync/Side.h"

#include "cli/machine/SystemError.h"
#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/transfer/LocalTree.h"
#include "cli/transfer/RemoteWalk.h"

#include <cerrno>

namespace tarncli {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t nanosecondsPerMillisecond = 1'000'000;

/// Names from the service become names here.
std::string whyNoName(const std::string& name)
{
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos)
        return "The service tells a name that cannot be one.";
    if (!nameOfStored(name)) return "Its name reads as an encoded one, and is none.";
    return whyNotAddressable(name);
}

class RemoteLook {
public:
    RemoteLook(Connection& connection, Output& out, const RemotePath& folder, const Filter& chosen)
        : root(folder)
        , filter(chosen)
        , walk(
              connection, out, [this](RemoteWalk::Folder& listed) { take(listed); },
              [this](const RemotePath& where, int) { return enters(where); })
    {
    }

    Side run()
    {
        unlisted.insert("");
        walk.add(root);
        const auto report = walk.run();
        if (unlisted.contains("")) {
            const auto& failure = report.failed.front().failure;
            if (failure.code() != ExitCode::notFound) throw failure;
            side.exists = false;
        } else if (report.notStarted > 0) {
            throw report.failed.front().failure;
        }
        unlisted.erase("");
        for (const auto& place : unlisted)
            side.leftOut.push_back({place, "The folder could not be listed.", true});
        return std::move(side);
    }

private:
    std::string below(const RemotePath& where) const
    {
        return where.path.size() <= root.path.size()
                   ? ""
                   : decodedName(where.path.substr(root.path.size() + !root.isRoot()));
    }

    bool enters(const RemotePath& where)
    {
        const auto place = below(where);
        if (!whyNoName(where.name()).empty()) return false; // told when its parent is visited
        if (!filter.wants(place, true)) return false;
        unlisted.insert(place);
        return true;
    }

    void take(const RemoteWalk::Folder& folder)
    {
        const auto above = below(folder.where);
        unlisted.erase(above);
        for (const auto& file : folder.listing->files)
            add(above, toUtf8(file.name),
                {false,
                 {file.size, static_cast<std::int64_t>(file.lastModified) * nanosecondsPerMillisecond,
                  file.watermark}});
        for (const auto& child : folder.listing->folders)
            add(above, toUtf8(child.name), {true});
    }

    void add(const std::string& above, const std::string& name, Item item)
    {
        const auto shown = decodedName(name);
        const auto place = above.empty() ? shown : above + "/" + shown;
        if (const auto why = whyNoName(name); !why.empty())
            side.leftOut.push_back({place, why, true});
        else if (filter.wants(place, item.isFolder))
            side.items[place] = std::move(item);
        else
            side.filtered.insert(place);
    }

    const RemotePath& root;
    const Filter& filter;
    RemoteWalk walk;
    std::set<std::string> unlisted; ///< folders whose listing has not come
    Side side;
};

} // namespace

Side lookAt(const fs::path& folder, const Filter& filter)
{
    Side side;
    std::error_code error;
    const auto status = fs::status(folder, error);
    if (!fs::exists(status)) {
        if (error && error != std::errc::no_such_file_or_directory) {
            errno = error.value();
            throwErrno("Could not read", folder);
        }
        side.exists = false;
        return side;
    }
    if (!fs::is_directory(status))
        throw Failure(ExitCode::conflict, escaped(folder.string()) + " is not a folder.");
    auto tree = walkLocalTree(folder, [&](const std::string& place, bool isFolder) {
        const bool wanted = filter.wants(place, isFolder);
        if (!wanted) side.filtered.insert(place);
        return wanted;
    });
    for (auto& entry : tree.entries)
        side.items[entry.below] = {entry.isFolder, {entry.size, entry.modified}};
    for (auto& skipped : tree.skipped)
        side.leftOut.push_back({skipped.below, skipped.reason, false});
    for (auto& failed : tree.failed) {
        if (failed.below.empty()) throw about(escaped(folder.string()), failed.failure);
        side.leftOut.push_back({failed.below, failed.failure.what(), true});
    }
    return side;
}

Side lookAt(Connection& connection, Output& out, const RemotePath& folder, const Filter& filter)
{
    return RemoteLook(connection, out, folder, filter).run();
}

std::string placeAbove(const std::string& place)
{
    const auto slash = place.rfind('/');
    return slash == std::string::npos ? "" : place.substr(0, slash);
}

} // namespace tarncli
