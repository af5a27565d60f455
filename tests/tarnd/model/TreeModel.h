#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tarnd::test {

struct ModelVersion {
    std::string id; ///< empty until the service has told it
    std::int64_t label = 0;
    std::string content;
};

struct ModelFile {
    std::vector<ModelVersion> versions; ///< by label
    std::size_t current = 0;            ///< index

    ModelVersion& shown() { return versions[current]; }

    const ModelVersion& shown() const { return versions[current]; }
};

/// What the service should do with one user's tree, stated a second time and kept in memory.
///
/// Every operation returns the status that the owner should get and, when that is 200, has taken effect.
/// Paths are plain: "/" or "/a/b".
class TreeModel {
public:
    using Grant = std::pair<std::string, std::string>; ///< path, subject

    int put(const std::string& path, const std::string& mode, bool newVersion, const std::string& content);
    int readFile(const std::string& path) const;
    int deleteFile(const std::string& path);
    int createFolder(const std::string& path);
    int listFolder(const std::string& path) const;
    int deleteFolder(const std::string& path, bool forceRecursive);
    int move(const std::string& from, const std::string& to, bool overwrite);
    int restore(const std::string& path, std::size_t version, bool newVersion);

    int readItem(const std::string& path) const { return exists(path) ? 200 : 404; }

    /// What `subject` gets where the owner would get `status`, if it is for reading.
    int forReader(const std::string& subject, const std::string& path, int status) const;

    bool isFile(const std::string& path) const { return files.count(path) != 0; }

    bool isFolder(const std::string& path) const { return folders.count(path) != 0; }

    bool exists(const std::string& path) const { return isFile(path) || isFolder(path); }

    /// @pre isFile(path)
    ModelFile& file(const std::string& path) { return files.at(path); }

    const ModelFile& file(const std::string& path) const { return files.at(path); }

    /// Names of the entries in order.
    std::vector<std::string> filesIn(const std::string& folder) const;
    std::vector<std::string> foldersIn(const std::string& folder) const;

    /// All paths there are.
    std::vector<std::string> paths() const;

    std::map<Grant, std::string> grants; ///< with their ids

private:
    bool isEmpty(const std::string& folder) const;
    void remove(const std::string& path);

    std::map<std::string, ModelFile> files;
    std::set<std::string> folders = {"/"};
};

std::string parentOf(const std::string& path);
std::string nameOf(const std::string& path);

} // namespace tarnd::test
