#include "cli/transfer/LocalTree.h"

#include "cli/remote/RemotePath.h"
#include "cli/remote/StoredNames.h"
#include "cli/transfer/IncomingFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace tarncli {

namespace {

namespace fs = std::filesystem;

class Walk {
public:
    explicit Walk(const std::function<bool(const std::string&, bool)>& wanted) : wants(wanted) {}

    void folder(const fs::path& folder, const std::string& below)
    {
        std::error_code error;
        std::vector<std::string> found;
        for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error))
            found.push_back(item->path().filename());
        if (error)
            return fail(folder, below,
                        {ExitCode::failure, "The folder could not be read: " + error.message() + "."});
        // The order of the file system is nobody's: two runs should do and tell the same.
        std::sort(found.begin(), found.end());
        for (const auto& name : found)
            entry(folder / name, name, below.empty() ? name : below + "/" + name);
    }

    SourceTree tree;

private:
    void entry(const fs::path& path, const std::string& name, const std::string& place)
    {
        struct stat status {};

        const int error = ::lstat(path.c_str(), &status) == 0 ? 0 : errno;
        const bool isFolder = error == 0 && S_ISDIR(status.st_mode);
        if (!wants(place, isFolder)) return;
        if (!isFolder && isIncoming(name)) return skip(path, place, "it is a part of a file to be fetched");
        if (error != 0)
            return fail(
                path, place,
                {ExitCode::failure, std::string("It could not be read: ") + std::strerror(error) + "."});
        // A link may lead out of the tree, or round in circles.
        if (S_ISLNK(status.st_mode)) return skip(path, place, "symbolic links are not followed");
        if (!isFolder && !S_ISREG(status.st_mode))
            return skip(path, place, "it is neither a file nor a folder");
        if (const auto why = whyNotStorable(encodedName(name)); !why.empty())
            return fail(path, place, usageError(why));
        if (isFolder) {
            tree.entries.push_back({path, place, true});
            return folder(path, place);
        }
        tree.entries.push_back(
            {path, place, false, static_cast<std::uint64_t>(status.st_size),
             std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec});
    }

    void skip(const fs::path& path, const std::string& place, const char* reason)
    {
        tree.skipped.push_back({path, reason, place});
    }

    void fail(const fs::path& path, const std::string& place, const Failure& failure)
    {
        tree.failed.push_back({path, failure, place});
    }

    const std::function<bool(const std::string&, bool)>& wants;
};

} // namespace

SourceTree walkLocalTree(const fs::path& root, const std::function<bool(const std::string&, bool)>& wants)
{
    Walk walk(wants);
    walk.folder(root, "");
    return std::move(walk.tree);
}

void requireLocalPath(const std::string& place)
{
    if (place.empty()) throw usageError("A local path is empty; the current folder is \".\".");
}

} // namespace tarncli
