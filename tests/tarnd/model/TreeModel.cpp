#include "tests/tarnd/model/TreeModel.h"

namespace tarnd::test {

namespace {

constexpr int ok = 200;
constexpr int missing = 404;
constexpr int conflict = 409;

/// The path itself or something below it.
bool isWithin(const std::string& path, const std::string& top)
{
    return top == "/" || path == top || path.compare(0, top.size() + 1, top + "/") == 0;
}

std::string moved(const std::string& path, const std::string& from, const std::string& to)
{
    return isWithin(path, from) ? to + path.substr(from.size()) : path;
}

template <class Paths>
std::vector<std::string> namesIn(const std::string& folder, const Paths& paths)
{
    std::vector<std::string> names;
    for (const auto& path : paths)
        if (path != "/" && parentOf(path) == folder) names.push_back(nameOf(path));
    return names;
}

template <class Map>
std::set<std::string> keysOf(const Map& map)
{
    std::set<std::string> keys;
    for (const auto& entry : map)
        keys.insert(entry.first);
    return keys;
}

void addVersion(ModelFile& file, const std::string& content)
{
    const auto last = file.versions.empty() ? 0 : file.versions.back().label;
    file.versions.push_back({{}, last + 1, content});
    file.current = file.versions.size() - 1;
}

} // namespace

std::string parentOf(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path)
{
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

int TreeModel::put(const std::string& path, const std::string& mode, bool newVersion,
                   const std::string& content)
{
    if (isFolder(path)) return conflict;
    if (isFile(path) ? mode == "CREATE" : mode == "UPDATE") return isFile(path) ? conflict : missing;
    if (!isFile(path) && !isFolder(parentOf(path))) return conflict;
    auto& file = files[path];
    if (file.versions.empty() || newVersion)
        addVersion(file, content);
    else
        file.shown().content = content;
    return ok;
}

int TreeModel::readFile(const std::string& path) const
{
    return isFile(path) ? ok : isFolder(path) ? conflict : missing;
}

int TreeModel::deleteFile(const std::string& path)
{
    const int status = readFile(path);
    if (status == ok) remove(path);
    return status;
}

int TreeModel::createFolder(const std::string& path)
{
    if (exists(path) || !isFolder(parentOf(path))) return conflict;
    folders.insert(path);
    return ok;
}

int TreeModel::listFolder(const std::string& path) const
{
    return isFolder(path) ? ok : isFile(path) ? conflict : missing;
}

int TreeModel::deleteFolder(const std::string& path, bool forceRecursive)
{
    if (const int status = listFolder(path); status != ok) return status;
    if (path == "/" || (!forceRecursive && !isEmpty(path))) return conflict;
    remove(path);
    return ok;
}

int TreeModel::move(const std::string& from, const std::string& to, bool overwrite)
{
    if (!exists(from)) return missing;
    if (from == "/" || to == "/" || isWithin(to, from) || !isFolder(parentOf(to))) return conflict;
    if (exists(to)) {
        if (!overwrite || isFile(from) != isFile(to)) return conflict;
        if (isFolder(to) && !isEmpty(to)) return conflict;
        remove(to);
    }
    decltype(files) newFiles;
    decltype(folders) newFolders;
    decltype(grants) newGrants;
    for (auto& [path, file] : files)
        newFiles.emplace(moved(path, from, to), std::move(file));
    for (const auto& path : folders)
        newFolders.insert(moved(path, from, to));
    for (const auto& [grant, id] : grants)
        newGrants.emplace(Grant(moved(grant.first, from, to), grant.second), id);
    files = std::move(newFiles);
    folders = std::move(newFolders);
    grants = std::move(newGrants);
    return ok;
}

int TreeModel::restore(const std::string& path, std::size_t version, bool newVersion)
{
    if (const int status = readFile(path); status != ok) return status;
    auto& restored = file(path);
    if (newVersion)
        addVersion(restored, std::string(restored.versions.at(version).content));
    else
        restored.current = version;
    return ok;
}

int TreeModel::forReader(const std::string& subject, const std::string& path, int status) const
{
    if (!exists(path)) return missing;
    for (const auto& entry : grants)
        if (entry.first.second == subject && isWithin(path, entry.first.first)) return status;
    return missing;
}

std::vector<std::string> TreeModel::filesIn(const std::string& folder) const
{
    return namesIn(folder, keysOf(files));
}

std::vector<std::string> TreeModel::foldersIn(const std::string& folder) const
{
    return namesIn(folder, folders);
}

std::vector<std::string> TreeModel::paths() const
{
    auto all = keysOf(files);
    all.insert(folders.begin(), folders.end());
    return {all.begin(), all.end()};
}

bool TreeModel::isEmpty(const std::string& folder) const
{
    return filesIn(folder).empty() && foldersIn(folder).empty();
}

void TreeModel::remove(const std::string& path)
{
    std::erase_if(files, [&](const auto& entry) { return isWithin(entry.first, path); });
    std::erase_if(folders, [&](const auto& folder) { return isWithin(folder, path); });
    std::erase_if(grants, [&](const auto& entry) { return isWithin(entry.first.first, path); });
}

} // namespace tarnd::test
