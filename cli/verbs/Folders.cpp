#include "cli/remote/Requests.h"
#include "cli/transfer/Conclusion.h"
#include "cli/verbs/Verbs.h"

#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using namespace connector::tarn;

void createFolder(Connection& connection, const RemotePath& folder)
{
    connection.call([&] { return connection.files().createFolder(requestFor<FolderCreate>(folder)); });
}

void createWithParents(Connection& connection, const RemotePath& folder)
{
    if (folder.isRoot()) return;
    createWithParents(connection, folder.parent());
    try {
        createFolder(connection, folder);
    } catch (const std::exception&) {
        if (!isAnswer(std::current_exception(), answers::folderExists)) throw;
    }
}

void removeItem(Connection& connection, const RemotePath& item, const RemoveOptions& options)
{
    const auto found = options.force ? findAttributes(connection, item) : attributesOf(connection, item);
    if (!found) return;
    if (isFolder(*found) && !options.recursive)
        throw Failure(ExitCode::conflict,
                      item.quoted() + " is a folder; use `tarn rm -r` to delete it with all that is in it.");
    naming(item, [&] {
        if (!isFolder(*found)) {
            connection.call([&] { return connection.files().deleteFile(requestFor<FileDelete>(item)); });
            return;
        }
        connection.call([&] {
            auto request = requestFor<FolderDelete>(item);
            request->forceRecursive = true;
            return connection.files().deleteFolder(std::move(request));
        });
    });
}

/// A target that is a folder takes the source in under its own name.
RemotePath moveTarget(Connection& connection, const RemotePath& source, const RemotePath& target)
{
    const auto found = findAttributes(connection, target);
    if (found && isFolder(*found) && !source.isRoot()) return target.child(source.name());
    if (target.asFolder && !found)
        throw Failure(ExitCode::notFound,
                      "There is no folder " + target.quoted() + "; make it with `tarn mkdir -p`.");
    return target;
}

} // namespace

namespace verbs {

void makeFolder(const Invocation& invocation, const MakeFolderOptions& options)
{
    for (const auto& path : options.paths)
        addressable(path);
    auto connection = invocation.connect();
    auto made = nlohmann::json::array();
    const auto report = forEach(invocation.out, options.paths, [&](const std::string& path) {
        const auto folder = addressable(path);
        naming(folder, [&] {
            options.parents ? createWithParents(connection, folder) : createFolder(connection, folder);
        });
        made.push_back(folder.text());
        invocation.out.detail("Made " + folder.quoted() + ".");
    });
    invocation.out.result("", {{"made", made}, {"failed", toJson(report.failed)}});
    conclude(report, "made");
}

void move(const Invocation& invocation, const MoveOptions& options)
{
    const auto source = addressable(options.source);
    const auto named = addressable(options.target);
    auto connection = invocation.connect();
    const auto target = moveTarget(connection, source, named);
    naming(source, [&] {
        connection.call([&] {
            auto request = requestFor<Move>(source);
            request->targetPath = toUtf16(target.path);
            request->targetBucket = toUtf16(target.bucket);
            request->moveTargetOverwrite = options.force;
            return connection.files().move(std::move(request));
        });
    });
    invocation.out.detail("Moved " + source.quoted() + " to " + target.quoted() + ".");
    invocation.out.result("", {{"source", source.text()}, {"target", target.text()}});
}

void remove(const Invocation& invocation, const RemoveOptions& options)
{
    for (const auto& path : options.paths)
        addressable(path);
    auto connection = invocation.connect();
    auto removed = nlohmann::json::array();
    const auto report = forEach(invocation.out, options.paths, [&](const std::string& path) {
        const auto item = addressable(path);
        removeItem(connection, item, options);
        removed.push_back(item.text());
        invocation.out.detail("Deleted " + item.quoted() + ".");
    });
    invocation.out.result("", {{"deleted", removed}, {"failed", toJson(report.failed)}});
    conclude(report, "deleted");
}

} // namespace verbs

} // namespace tarncli
