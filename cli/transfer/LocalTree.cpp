#include "cli/transfer/LocalTree.h"

#include "cli/remote/RemotePath.h"

#include <algorithm>

namespace tarncli {

namespace {

namespace fs = std::filesystem;

class Walk {
public:
    void folder(const fs::path& folder, const std::string& below)
    {
        std::error_code error;
        std::vector<fs::directory_entry> found;
        for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error))
            found.push_back(*item);
        if (error) {
            fail(folder, {ExitCode::failure, "The folder could not be read: " + error.message() + "."});
            return;
        }
        // The order of the file system is nobody's: two runs should do and tell the same.
        std::sort(found.begin(), found.end());
        for (const auto& item : found)
            entry(item, below);
    }

    SourceTree tree;

private:
    void entry(const fs::directory_entry& item, const std::string& below)
    {
        std::error_code error;
        const auto name = item.path().filename().string();
        const auto place = below.empty() ? name : below + "/" + name;
        const auto status = item.symlink_status(error);
        // A link may lead out of the tree, or round in circles.
        if (fs::is_symlink(status)) return skip(item.path(), "symbolic links are not followed");
        if (!error && !fs::is_directory(status) && !fs::is_regular_file(status))
            return skip(item.path(), "it is neither a file nor a folder");
        if (const auto why = whyNotAddressable(name); !why.empty()) return fail(item.path(), usageError(why));
        if (fs::is_directory(status)) {
            tree.entries.push_back({item.path(), place, true, 0});
            return folder(item.path(), place);
        }
        const auto size = error ? 0 : item.file_size(error);
        if (error)
            return fail(item.path(), {ExitCode::failure, "It could not be read: " + error.message() + "."});
        tree.entries.push_back({item.path(), place, false, size});
    }

    void skip(const fs::path& path, const char* reason) { tree.skipped.push_back({path, reason}); }

    void fail(const fs::path& path, const Failure& failure) { tree.failed.push_back({path, failure}); }
};

} // namespace

SourceTree walkLocalTree(const fs::path& root)
{
    Walk walk;
    walk.folder(root, "");
    return std::move(walk.tree);
}

} // namespace tarncli
