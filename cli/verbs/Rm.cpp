#include "cli/remote/Aside.h"
#include "cli/remote/Change.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/remote/Wildcards.h"
#include "cli/transfer/Conclusion.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

struct Options {
    std::vector<std::string> paths;
    bool recursive = false;
    bool force = false;
    bool keep = false;
};

void removeItem(Connection& connection, const RemoteItem& named, const Options& options)
{
    const auto& item = named.where;
    // Files and folders are deleted by different requests, so it must be known which it is.
    const auto found =
        options.force && !named.known ? findAttributes(connection, item) : attributesOf(connection, named);
    if (!found) return;
    if (isFolder(*found) && !options.recursive)
        throw Failure(ExitCode::conflict,
                      item.quoted() + " is a folder; use `tarn rm -r` to delete it and everything in it.");
    if (options.keep) return putAside(connection, item, found->watermark);
    naming(item, [&] {
        recorded(connection, {Change::Kind::remove, item.stored()}, [&] {
            const auto isGone = [&] { return !findAttributes(connection, item); };
            const auto removeFile = [&] {
                return connection.files().deleteFile(requestFor<FileDelete>(item));
            };
            const auto removeFolder = [&] {
                auto request = requestFor<FolderDelete>(item);
                request->forceRecursive = true;
                return connection.files().deleteFolder(std::move(request));
            };
            isFolder(*found) ? makeChange(connection, removeFolder, isGone)
                             : makeChange(connection, removeFile, isGone);
            return std::string();
        });
    });
}

void remove(const Invocation& invocation, const Options& options)
{
    // All of them first: a slip in the last one must not show when the others are gone.
    for (const auto& path : options.paths)
        if (addressableOrPattern(path).isRoot())
            throw usageError("The root folder cannot be deleted; name what is in it.");
    auto connection = invocation.connect();
    auto removed = nlohmann::json::array();
    const auto report =
        forEachItem(connection, invocation.out, options.paths, options.force, [&](const RemoteItem& item) {
            removeItem(connection, item, options);
            removed.push_back(item.where.text());
            invocation.out.detail("Deleted " + item.where.quoted() + ".");
        });
    invocation.out.result("", {{"deleted", removed}, {"failed", toJson(report.failed)}});
    conclude(report, "deleted");
}

} // namespace

Verb rm()
{
    const auto options = std::make_shared<Options>();
    return {.name = "rm",
            .summary = "Delete files and folders",
            .examples = "  tarn rm /a.txt\n"
                        "  tarn rm -r /docs\n"
                        "  tarn rm '/photos/*.tmp'              quoted, so that the shell leaves it alone\n"
                        "  tarn rm -r --keep /photos            then, perhaps: tarn undo",
            .notes = "What is deleted is gone, with all its versions. With --keep it is moved into the "
                     "folder /.tarn-removed instead: it takes space, and whoever may read it still may, "
                     "until `tarn rm -r /.tarn-removed` deletes that.",
            .takes = {{"PATH",
                       &options->paths,
                       "Files and folders, wildcards as in '/photos/*.tmp'",
                       {.required = true, .words = Words::remote}},
                      {"-r,--recursive", &options->recursive, "Include folders and everything in them"},
                      {"-f,--force", &options->force, "Ignore what does not exist"},
                      {"-k,--keep", &options->keep, "Put it aside, so that `tarn undo` can bring it back"}},
            .run = [options](const Invocation& invocation) { remove(invocation, *options); }};
}

} // namespace tarncli::verbs
