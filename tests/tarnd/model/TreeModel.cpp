#include "tests/tarnd/model/TreeModel.h"

namespace tarnd::test {

namespace {

constexpr int ok = 200;
constexpr int missing = 404;
constexpr int conflict = 409;

/// The path itself or something below it.
bool isWithin(const std::string& path, const std::string& top)
{
    return top == "/" || path == top || path.starts_with(top + "/");
}

void addVersion(ModelItem& file, const std::string& content)
{
    file.versions.push_back({{}, file.isFile() ? file.versions.back().label + 1 : 1, content});
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

int TreeModel::findItem(const std::string& path) const
{
    return items.contains(path) ? ok : missing;
}

int TreeModel::findFile(const std::string& path) const
{
    return !items.contains(path) ? missing : items.at(path).isFile() ? ok : conflict;
}

int TreeModel::findFolder(const std::string& path) const
{
    return !items.contains(path) ? missing : items.at(path).isFile() ? conflict : ok;
}

int TreeModel::put(const std::string& path, const std::string& mode, bool newVersion,
                   const std::string& content)
{
    if (findFile(path) == missing) {
        if (mode == "UPDATE") return missing;
        if (findFolder(parentOf(path)) != ok) return conflict;
    } else if (findFile(path) == conflict || mode == "CREATE") {
        return conflict;
    }
    auto& file = items[path];
    if (!file.isFile() || newVersion)
        addVersion(file, content);
    else
        file.shown().content = content;
    return ok;
}

int TreeModel::createFolder(const std::string& path)
{
    if (items.contains(path) || findFolder(parentOf(path)) != ok) return conflict;
    items[path];
    return ok;
}

int TreeModel::deleteFile(const std::string& path)
{
    const int status = findFile(path);
    if (status == ok) items.erase(path);
    return status;
}

int TreeModel::deleteFolder(const std::string& path, bool forceRecursive)
{
    if (const int status = findFolder(path); status != ok) return status;
    const bool isEmpty = (namesIn(path, true) + namesIn(path, false)).empty();
    if (path == "/" || (!forceRecursive && !isEmpty)) return conflict;
    std::erase_if(items, [&](const auto& item) { return isWithin(item.first, path); });
    return ok;
}

int TreeModel::move(const std::string& from, const std::string& to, bool overwrite)
{
    if (findItem(from) != ok) return missing;
    if (from == to && overwrite && from != "/") return ok;
    if (from == "/" || to == "/" || isWithin(to, from) || findFolder(parentOf(to)) != ok) return conflict;
    const bool isTaken = items.contains(to);
    if (isTaken && (!overwrite || items[from].isFile() != items[to].isFile())) return conflict;
    if (isTaken && (items[to].isFile() ? deleteFile(to) : deleteFolder(to, false)) != ok) return conflict;
    decltype(items) after;
    for (auto& [path, item] : items)
        after[isWithin(path, from) ? to + path.substr(from.size()) : path] = std::move(item);
    items = std::move(after);
    return ok;
}

int TreeModel::restore(const std::string& path, std::size_t version, bool newVersion)
{
    if (const int status = findFile(path); status != ok) return status;
    auto& file = items[path];
    if (newVersion)
        addVersion(file, std::string(file.versions.at(version).content));
    else
        file.current = version;
    return ok;
}

int TreeModel::grant(const std::string& path, const std::string& subject)
{
    if (findItem(path) == ok) items[path].grants.try_emplace(subject);
    return findItem(path);
}

int TreeModel::revoke(const std::string& id)
{
    for (auto& [path, item] : items)
        if (std::erase_if(item.grants, [&](const auto& grant) { return grant.second == id; })) return ok;
    return 400;
}

bool TreeModel::isSharedWith(const std::string& subject, const std::string& path) const
{
    for (const auto& [top, item] : items)
        if (isWithin(path, top) && item.grants.contains(subject)) return true;
    return false;
}

std::string TreeModel::namesIn(const std::string& folder, bool files) const
{
    std::string names;
    for (const auto& [path, item] : items)
        if (path != "/" && parentOf(path) == folder && item.isFile() == files) names += nameOf(path) + "|";
    return names;
}

} // namespace tarnd::test
