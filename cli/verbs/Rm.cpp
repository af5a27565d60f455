#include "cli/remote/Change.h"
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
    naming(item, [&] {
        const auto isGone = [&] { return !findAttributes(connection, item); };
        if (!isFolder(*found)) {
            const auto remove = [&] { return connection.files().deleteFile(requestFor<FileDelete>(item)); };
            return makeChange(connection, remove, isGone);
        }
        const auto remove = [&] {
            auto request = requestFor<FolderDelete>(item);
            request->forceRecursive = true;
            return connection.files().deleteFolder(std::move(request));
        };
        makeChange(connection, remove, isGone);
    });
}

void remove(const Invocation& invocation, const Options& options)
{
    // All of them first: a slip in the last one must not show when the others are gone.
    for (const auto& path : options.paths)
        addressableOrPattern(path);
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
                        "  tarn rm '/photos/*.tmp'              quoted, so that the shell leaves it alone",
            .takes = {{"PATH",
                       &options->paths,
                       "Files and folders, wildcards as in '/photos/*.tmp'",
                       {.required = true, .words = Words::remote}},
                      {"-r,--recursive", &options->recursive, "Include folders and everything in them"},
                      {"-f,--force", &options->force, "Ignore what does not exist"}},
            .run = [options](const Invocation& invocation) { remove(invocation, *options); }};
}

} // namespace tarncli::verbs
