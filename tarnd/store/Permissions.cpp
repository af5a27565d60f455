#include "tarnd/store/Permissions.h"

#include "tarnd/store/Accounts.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/Tree.h"

#include <algorithm>
#include <tuple>

namespace tarnd {

namespace {

constexpr std::size_t permissionIdBytes = 12;

/// The caller's grants for which `condition` (about $1) holds.
std::vector<Permission> permissions(Transaction& transaction, const Caller& caller,
                                    const std::string& condition, std::int64_t argument)
{
    const std::string grants = " FROM grants g JOIN nodes n ON n.id = g.node ";
    const auto paths = pathsOf(transaction, "SELECT g.node" + grants + "WHERE " + condition, argument);
    std::vector<Permission> found;
    for (auto& [id, node, subject, user] :
         transaction.rows<std::string, std::int64_t, std::string, std::int64_t>(
             "SELECT g.id, g.node, g.subject, COALESCE(u.id, 0)" + grants +
                 "LEFT JOIN users u ON u.name = g.subject WHERE " + condition,
             argument))
        found.push_back({id, paths.at(node), caller.user, subject, "READ_ONLY", user ? "ACTIVE" : "PENDING"});
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
        return std::tie(a.path, a.subject) < std::tie(b.path, b.subject);
    });
    return found;
}

} // namespace

std::string Permissions::grant(const Caller& caller, const Location& location, const std::string& subject,
                               bool allowNonExistingUser)
{
    return engine.database.write(WriteScope{caller.userId}, [&](Transaction& transaction) {
        const auto node = Tree(transaction, caller).owned(location);
        requireUserName(subject);
        if (subject == caller.user) throw sentences::grantToOwner();
        const bool known =
            transaction.value<std::int64_t>("SELECT id FROM users WHERE name = $1", subject).has_value();
        if (!known && !allowNonExistingUser) throw sentences::unknownUser(subject);
        // Granting again is no error and keeps the id, which the subject or a script may hold.
        const auto existing = transaction.value<std::string>(
            "SELECT id FROM grants WHERE node = $1 AND subject = $2", node.id, subject);
        if (existing) return *existing;
        const auto id = randomHex(permissionIdBytes);
        transaction.run("INSERT INTO grants (id, node, subject) VALUES ($1, $2, $3)", id, node.id, subject);
        return id;
    });
}

void Permissions::revoke(const Caller& caller, const std::string& permissionId)
{
    engine.database.writeAlsoWhenFull(WriteScope{caller.userId}, [&](Transaction& transaction) {
        const auto found = transaction.row<std::int64_t, std::string>(
            "SELECT n.owner, g.subject FROM grants g JOIN nodes n ON n.id = g.node WHERE g.id = $1",
            permissionId);
        const bool isOwner = found && std::get<0>(*found) == caller.userId;
        const bool isSubject = found && std::get<1>(*found) == caller.user;
        // The subject sees that the grant exists and may be told so; to all others it is unknown.
        if (isSubject) throw sentences::readOnly();
        if (!isOwner) throw sentences::unknownPermission();
        transaction.run("DELETE FROM grants WHERE id = $1", permissionId);
    });
}

std::vector<Permission> Permissions::list(const Caller& caller)
{
    return engine.database.read([&](Transaction& transaction) {
        return permissions(transaction, caller, "n.owner = $1", caller.userId);
    });
}

std::vector<Permission> Permissions::list(const Caller& caller, const Location& location)
{
    return engine.database.read([&](Transaction& transaction) {
        return permissions(transaction, caller, "n.id = $1", Tree(transaction, caller).owned(location).id);
    });
}

} // namespace tarnd
