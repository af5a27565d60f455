#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tarnd::test {

struct ModelVersion {
    std::string id; ///< empty until the service has told it
    std::int64_t label;
    std::string content;
};

/// A file, or a folder, which has no versions.
struct ModelItem {
    bool isFile() const { return !versions.empty(); }

    ModelVersion& shown() { return versions[current]; }

    std::vector<ModelVersion> versions; ///< by label
    std::size_t current = 0;            ///< index
    std::map<std::string, std::string>
        grants; ///< ids by subject; an id is empty until the service has told it
};

/// What the service should do with one user's tree, stated a second time and kept in memory.
///
/// Every operation returns the status that the owner should get and, when that is 200, has taken effect.
struct TreeModel {
    int put(const std::string& path, const std::string& mode, bool newVersion, const std::string& content);
    int createFolder(const std::string& path);
    int deleteFile(const std::string& path);
    int deleteFolder(const std::string& path, bool forceRecursive);
    int move(const std::string& from, const std::string& to, bool overwrite);
    int restore(const std::string& path, std::size_t version, bool newVersion);
    int grant(const std::string& path, const std::string& subject);
    int revoke(const std::string& id);

    int findItem(const std::string& path) const;
    int findFile(const std::string& path) const;
    int findFolder(const std::string& path) const;

    /// The item or a folder above it was granted to the subject.
    bool isSharedWith(const std::string& subject, const std::string& path) const;

    /// "a|b|": the files or the folders in a folder.
    std::string namesIn(const std::string& folder, bool files) const;

    std::map<std::string, ModelItem> items{{"/", {}}}; ///< by path: "/" or "/a/b"
};

std::string parentOf(const std::string& path);
std::string nameOf(const std::string& path);

} // namespace tarnd::test
