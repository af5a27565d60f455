#include "cli/remote/NewFolder.h"
#include "cli/remote/Requests.h"
#include "cli/transfer/Conclusion.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

struct Options {
    std::vector<std::string> paths;
    bool parents = false;
};

void createWithParents(Connection& connection, const RemotePath& folder)
{
    if (folder.isRoot()) return;
    // Asking what is there first would cost as many requests, and another could make it in between.
    createWithParents(connection, folder.parent());
    createMissingFolder(connection, folder);
}

void makeFolders(const Invocation& invocation, const Options& options)
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

} // namespace

Verb mkdir()
{
    const auto options = std::make_shared<Options>();
    return {
        .name = "mkdir",
        .summary = "Make folders",
        .examples = "  tarn mkdir /docs\n"
                    "  tarn mkdir -p /a/b/c",
        .takes = {{"PATH", &options->paths, "Folders", {.required = true, .words = Words::remote}},
                  {"-p,--parents", &options->parents, "Make missing parents too; accept folders that exist"}},
        .run = [options](const Invocation& invocation) { makeFolders(invocation, *options); }};
}

} // namespace tarncli::verbs
