#include "cli/remote/Requests.h"
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

void removeItem(Connection& connection, const RemotePath& item, const Options& options)
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

void remove(const Invocation& invocation, const Options& options)
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

} // namespace

Verb rm()
{
    const auto options = std::make_shared<Options>();
    return {.name = "rm",
            .summary = "Delete files and folders",
            .examples = "  tarn rm /a.txt\n"
                        "  tarn rm -r /docs",
            .takes = {{"PATH", &options->paths, "Files and folders", {.required = true}},
                      {"-r,--recursive", &options->recursive, "Folders with all that is in them"},
                      {"-f,--force", &options->force, "What is not there is no error"}},
            .run = [options](const Invocation& invocation) { remove(invocation, *options); }};
}

} // namespace tarncli::verbs
