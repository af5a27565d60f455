#include "cli/undo/Undoing.h"

#include "cli/remote/Aside.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/Grants.h"
#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/terminal/Output.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/LocalContent.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

namespace tarncli {

using namespace connector::tarn;
using connector::Future;
using Kind = Change::Kind;

namespace {

constexpr const char* changedSince = "has changed since";
constexpr const char* nobodyKnows = "may be what the command was storing when it ended, or another's";

/// Of what the command was storing, unless that has changed or was a pipe.
std::optional<std::string> digestOfOrigin(Connection& connection, const Change& change)
{
    try {
        if (!change.remoteOrigin.empty())
            return digestOf(connection, RemotePath::ofStored(change.remoteOrigin));
        if (change.localOrigin.empty()) return {};
        const auto content = LocalContent::ofFile(change.localOrigin, Symlinks::follow);
        if (content.size() == change.size && content.modified() == change.modified) return content.sha256();
    } catch (const std::exception&) { // it is gone: then nobody can tell
    }
    return {};
}

/// Waits for no reply's content.
template <class Request>
std::function<Future<bool>()>
sending(std::function<Future<std::unique_ptr<typename Request::Response>>()> send)
{
    return [send = std::move(send)] {
        return send().then([](Future<std::unique_ptr<typename Request::Response>>&& reply) {
            reply.get();
            return true;
        });
    };
}

class Planner {
public:
    Planner(Connection& openConnection, Output& output, const LoggedCommand& undone)
        : connection(openConnection), out(output), command(undone)
    {
    }

    UndoPlan run()
    {
        lookAtFiles();
        for (const auto& change : command.changes)
            if (change.kind == Kind::makeFolder || stored.contains(&change))
                leaving.insert(RemotePath::ofStored(change.path).path);
            else if (change.kind == Kind::move)
                leaving.insert(RemotePath::ofStored(change.target).path);
        for (const auto& change : command.changes)
            if (change.kind == Kind::makeFolder) firstMaking.emplace(change.path, &change);
        for (auto change = command.changes.rbegin(); change != command.changes.rend(); ++change)
            if (!isRepeated(*change)) take(*change);
        return std::move(plan);
    }

private:
    enum class Found { ours, anothers, unknown };

    /// A folder that the command was about to make again goes with the first time, when what came into it is out.
    bool isRepeated(const Change& change) const
    {
        return change.kind == Kind::makeFolder && firstMaking.at(change.path) != &change;
    }

    void take(const Change& change)
    {
        const auto item = RemotePath::ofStored(change.path);
        switch (change.kind) {
        case Kind::createFile:
            if (const auto ours = stored.find(&change); ours != stored.end()) deleteFile(item, ours->second);
            return;
        case Kind::addVersion:
        case Kind::restore:
            return takeVersion(change, item);
        case Kind::makeFolder:
            return takeFolder(change, item);
        case Kind::move:
            return takeMove(change, item);
        case Kind::grant:
            return takeGrant(change, item);
        case Kind::revoke:
            return takeRevoke(change, item);
        case Kind::replaceContent:
        case Kind::remove:
            return tellLost(change, item);
        }
    }

    void differs(const RemotePath& item, const std::string& how)
    {
        plan.differences.push_back({item.text(), how});
    }

    /// Many at a time: for each its versions, and when there is just the one, its content.
    void lookAtFiles()
    {
        Transfers transfers(connection, out);
        std::uint64_t count = 0;
        for (const auto& change : command.changes) {
            if (change.kind != Kind::createFile) continue;
            transfers.add(lookAtVersions(transfers, change));
            ++count;
        }
        out.progress().begin("Looking", 0, 2 * count);
        const auto report = transfers.run();
        out.progress().end();
        if (!report.failed.empty()) throw report.failed.front().failure;
    }

    Transfer lookAtVersions(Transfers& transfers, const Change& change)
    {
        auto reply = std::make_shared<std::unique_ptr<VersionListResponse>>();
        auto isGone = std::make_shared<bool>(false);
        const auto item = RemotePath::ofStored(change.path);
        Transfer transfer;
        transfer.what = item.quoted();
        transfer.start = [this, item, reply] {
            return connection.versioning()
                .listVersions(requestFor<VersionList>(item))
                .then([reply](Future<std::unique_ptr<VersionListResponse>>&& list) {
                    *reply = list.get();
                    return true;
                });
        };
        transfer.forgives = [isGone](const std::exception_ptr& error) {
            *isGone = isRefusal(error, reasons::notFound);
            return *isGone || isRefusal(error, "isFolder");
        };
        transfer.succeeded = [this, &transfers, &change, item, reply, isGone] {
            if (*isGone) return;
            const auto* list = reply->get();
            const bool isFirst = list != nullptr && list->versions.size() == 1;
            if (isFirst &&
                (change.after.empty() || isVersion(change.after, list->versions.front().versionId)))
                transfers.addFirst(lookAtContent(change, item, list->versions.front().versionId));
            else if (!change.after.empty())
                differs(item, changedSince);
        };
        return transfer;
    }

    /// @param version  the only one
    Transfer lookAtContent(const Change& change, const RemotePath& item, const std::string& version)
    {
        auto current = std::make_shared<CurrentContent>();
        Transfer transfer;
        transfer.what = item.quoted();
        transfer.start = [this, item, current] {
            return requestCurrent(connection, item, 1).then([current](Future<CurrentContent>&& reply) {
                *current = reply.get();
                return true;
            });
        };
        transfer.forgives = [](const std::exception_ptr& error) {
            return isRefusal(error, reasons::notFound);
        };
        transfer.succeeded = [this, &change, item, version, current] {
            // Of an empty one no part can be asked for, which would tell more.
            const bool isEmpty = current->size == 0 && change.size == 0 && current->version.empty();
            const bool isKnown = isEmpty || !change.after.empty();
            const bool isOurs =
                isKnown ? isEmpty || current->version == change.after : isOfKilled(change, item, *current);
            if (isOurs)
                stored[&change] = !isEmpty ? current->version : change.after.empty() ? version : change.after;
            else if (isKnown)
                differs(item, changedSince);
        };
        return transfer;
    }

    /// Whether a command left it that was killed before it knew.
    bool isOfKilled(const Change& change, const RemotePath& item, const CurrentContent& current)
    {
        const auto found = ofKilled(change, current);
        if (found == Found::unknown) differs(item, nobodyKnows);
        return found == Found::ours;
    }

    Found ofKilled(const Change& change, const CurrentContent& current)
    {
        const auto digest = digestOfOrigin(connection, change);
        if (digest == current.sha256) return Found::ours;
        // It may have been changed on its way there.
        return !digest || current.size == change.size ? Found::unknown : Found::anothers;
    }

    void deleteFile(const RemotePath& item, const std::string& version)
    {
        plan.steps.push_back({"delete", item.text(), "",
                              sending<FileDelete>([&connection = connection, item, version] {
                                  auto request = requestFor<FileDelete>(item);
                                  request->ifVersion = version;
                                  return connection.files().deleteFile(std::move(request));
                              }),
                              isGone(item)});
    }

    std::function<bool()> isGone(const RemotePath& item)
    {
        return [&connection = connection, item] { return !findAttributes(connection, item); };
    }

    void takeFolder(const Change& change, const RemotePath& folder)
    {
        std::unique_ptr<FolderListResponse> listing;
        try {
            listing = connection.call([&] { return requestListing(connection, folder); });
        } catch (const std::exception&) {
            const auto error = std::current_exception();
            if (isRefusal(error, reasons::notFound)) return;
            if (!isRefusal(error, reasons::isFile)) throw about(folder.quoted(), explain(error));
            return differs(folder, "is a file now");
        }
        const auto other = anothersIn(folder, *listing);
        // Of one whose reply did not come, its time tells; and what is put aside is all in one folder.
        const bool mayStay = isAside(folder) && !other.empty();
        if (mayStay || (!change.isDone && (!other.empty() || listing->folder.created < command.when))) {
            leaving.erase(folder.path);
            return;
        }
        if (!other.empty()) return differs(folder, "holds \"" + other + "\", which the command did not make");
        plan.steps.push_back({"deleteFolder", folder.text(), "",
                              sending<FolderDelete>([&connection = connection, folder] {
                                  return connection.files().deleteFolder(requestFor<FolderDelete>(folder));
                              }),
                              isGone(folder)});
    }

    /// The first that stays; empty: none does.
    std::string anothersIn(const RemotePath& folder, const FolderListResponse& listing) const
    {
        const auto nameOf = [](const auto& item) { return toUtf8(item.name); };
        const auto stays = [&](const auto& item) {
            return !leaving.contains(folder.child(nameOf(item)).path);
        };
        if (const auto file = std::ranges::find_if(listing.files, stays); file != listing.files.end())
            return nameOf(*file);
        const auto below = std::ranges::find_if(listing.folders, stays);
        return below == listing.folders.end() ? "" : nameOf(*below);
    }

    void takeVersion(const Change& change, const RemotePath& file)
    {
        if (!findAttributes(connection, file)) return differs(file, "is gone");
        const auto current = naming(file, [&] { return currentOf(connection, file); });
        if (!change.before.empty() && current.version == change.before) return;
        const auto versions = versionsOf(connection, file)->versions;
        switch (whose(change, current, versions.empty() ? "" : versions.front().versionId)) {
        case Found::unknown:
            return differs(file, nobodyKnows);
        case Found::anothers:
            if (change.isDone) differs(file, changedSince);
            return;
        case Found::ours:
            break;
        }
        const auto before = std::ranges::find_if(
            versions, [&](const VersionSummary& each) { return isVersion(change.before, each.versionId); });
        if (before == versions.end())
            return plan.lost.push_back({file.text(), "the version before is not kept any more"});
        plan.steps.push_back({"restore", file.text(), "version " + std::to_string(before->versionLabel),
                              sending<VersionRestore>(
                                  [&connection = connection, file, version = *before, now = current.version] {
                                      auto request = requestFor<VersionRestore>(file);
                                      request->versionId = version.versionId;
                                      request->versionLabel = version.versionLabel;
                                      request->ifVersion = now;
                                      return connection.versioning().restoreVersion(std::move(request));
                                  }),
                              [&connection = connection, file, id = before->versionId] {
                                  return isVersion(currentOf(connection, file).version, id);
                              }});
    }

    Found whose(const Change& change, const CurrentContent& current, const std::string& newest)
    {
        const bool isKnown = change.isDone && !change.after.empty();
        if (!isKnown && change.kind == Kind::addVersion) return ofKilled(change, current);
        const bool isOurs = isKnown
                                ? current.version == change.after
                                : isVersion(current.version, change.after.empty() ? newest : change.after);
        return isOurs ? Found::ours : Found::anothers;
    }

    void takeMove(const Change& change, const RemotePath& source)
    {
        const auto target = RemotePath::ofStored(change.target);
        const auto moved = findAttributes(connection, target);
        if (findAttributes(connection, source)) {
            if (change.isDone && moved) differs(source, "is there again");
            return;
        }
        if (!moved) return differs(target, "is gone");
        if (moved->watermark != change.before) return differs(target, changedSince);
        if (!source.parent().isRoot() && !comesBack(source.parent()) &&
            !findAttributes(connection, source.parent()))
            return differs(source.parent(), "is gone");
        if (change.loses)
            plan.lost.push_back({target.text(), "what was there was replaced, and nothing keeps it"});
        plan.steps.push_back({"move", target.text(), "to " + source.text(),
                              sending<Move>([&connection = connection, source, target] {
                                  auto request = requestFor<Move>(target);
                                  request->targetPath = toUtf16(source.path);
                                  request->targetBucket = toUtf16(source.bucket);
                                  return connection.files().move(std::move(request));
                              }),
                              isGone(target)});
    }

    /// By another step, before.
    bool comesBack(const RemotePath& folder) const
    {
        return std::ranges::any_of(command.changes, [&](const Change& change) {
            return change.kind == Kind::move &&
                   (folder.path + "/").starts_with(RemotePath::ofStored(change.path).path + "/");
        });
    }

    /// Null: the item is gone.
    std::optional<std::vector<Permission>> grantsOn(const RemotePath& item)
    {
        if (!findAttributes(connection, item)) return {};
        return listGrants(connection, item.text());
    }

    void takeGrant(const Change& change, const RemotePath& item)
    {
        const auto grants = grantsOn(item).value_or(std::vector<Permission>());
        const auto given = std::ranges::find_if(grants, [&](const Permission& grant) {
            return change.after.empty() ? toUtf8(grant.subjectName) == change.target
                                        : grant.permissionId == change.after;
        });
        if (given == grants.end()) return;
        plan.steps.push_back({"revoke", item.text(), "from " + change.target,
                              sending<PermissionRevoke>([&connection = connection, id = given->permissionId] {
                                  auto request = std::make_unique<PermissionRevoke>();
                                  request->permissionId = id;
                                  return connection.access().revokePermission(std::move(request));
                              }),
                              [] { return false; }});
    }

    void takeRevoke(const Change& change, const RemotePath& item)
    {
        const auto grants = grantsOn(item);
        if (!grants) return differs(item, "is gone");
        const auto isHis = [&](const Permission& grant) {
            return toUtf8(grant.subjectName) == change.target;
        };
        if (std::ranges::any_of(*grants, isHis)) return;
        plan.steps.push_back({"grant", item.text(), "to " + change.target,
                              sending<PermissionGrant>([&connection = connection, item, change] {
                                  auto request = requestFor<PermissionGrant>(item);
                                  request->subject = toUtf16(change.target);
                                  request->allowNonExistingUser = change.loses;
                                  return connection.access().grantPermission(std::move(request));
                              }),
                              [] { return false; }});
    }

    void tellLost(const Change& change, const RemotePath& item)
    {
        const bool isRemoval = change.kind == Kind::remove;
        if (!change.isDone) {
            const auto found = findAttributes(connection, item);
            if (found && (isRemoval || found->watermark == change.before)) return;
        }
        plan.lost.push_back(
            {item.text(), isRemoval ? "was deleted, and nothing keeps it (`tarn rm --keep` would have)"
                                    : "was replaced, and nothing keeps what was there (--new-version "
                                      "would have)"});
    }

    Connection& connection;
    Output& out;
    const LoggedCommand& command;
    std::map<const Change*, std::string>
        stored; ///< files that are as the command left them: of each the version
    std::map<std::string_view, const Change*> firstMaking; ///< of a folder, by its path
    std::set<std::string> leaving; ///< what is gone, or elsewhere, when the command is taken back
    UndoPlan plan;
};

Transfer transferOf(const UndoStep& step)
{
    Transfer transfer;
    transfer.what = "\"" + escaped(step.path) + "\"";
    transfer.start = step.send;
    transfer.wasDone = [isDone = step.isDone] { return std::optional(isDone()); };
    // What is gone already need not go.
    const std::string_view what = step.what;
    const auto forgiven = what.starts_with("delete") ? reasons::notFound
                          : what == "revoke"         ? std::string_view("unknownPermission")
                                                     : std::string_view();
    transfer.forgives = [forgiven](const std::exception_ptr& error) {
        return !forgiven.empty() && isRefusal(error, forgiven);
    };
    return transfer;
}

} // namespace

UndoPlan planUndo(Connection& connection, Output& out, const LoggedCommand& command)
{
    return Planner(connection, out, command).run();
}

TransferReport takeBack(Connection& connection, Output& out, const UndoPlan& plan)
{
    TransferReport report;
    out.progress().begin("Undoing", 0, plan.steps.size());
    for (auto step = plan.steps.begin(); step != plan.steps.end() && report.notStarted == 0;) {
        // Files do not depend on one another; all else is done in its order.
        Transfers transfers(connection, out);
        const bool isFile = step->what == std::string_view("delete");
        do
            transfers.add(transferOf(*step++));
        while (isFile && step != plan.steps.end() && step->what == std::string_view("delete"));
        addTo(report, transfers.run());
    }
    out.progress().end();
    return report;
}

} // namespace tarncli
