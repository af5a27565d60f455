#include "tarnd/store/SharedContent.h"

#include "tarnd/store/Tree.h"

#include <map>

namespace tarnd {

std::vector<SharedByUser> SharedContent::list(const Caller& caller)
{
    return engine.database.read([&](Transaction& transaction) {
        const std::string granted = "SELECT node FROM grants WHERE subject = $1";
        const auto paths = pathsOf(transaction, granted, caller.user);
        std::map<std::int64_t, std::string> names;
        for (auto& [id, name] : transaction.rows<std::int64_t, std::string>(
                 "SELECT id, name FROM users WHERE id IN (SELECT owner FROM nodes WHERE id IN (" + granted +
                     "))",
                 caller.user))
            names.emplace(id, name);

        // The reply groups by sharer, and a map keeps each group in order of the paths.
        std::map<std::pair<std::string, std::string>, Node> byUserAndPath;
        for (auto& node : nodesIn(transaction, granted, caller.user))
            byUserAndPath.emplace(std::pair(names.at(node.owner), paths.at(node.id)), std::move(node));

        std::vector<SharedByUser> shared;
        for (const auto& [place, node] : byUserAndPath) {
            const auto& [user, path] = place;
            if (shared.empty() || shared.back().user != user) shared.push_back({user, {}, {}});
            auto& items = node.isFolder() ? shared.back().folders : shared.back().files;
            items.push_back({itemOf(node, false), path, user});
        }
        return shared;
    });
}

} // namespace tarnd
