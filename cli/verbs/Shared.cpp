#include "cli/remote/Answer.h"
#include "cli/remote/Requests.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using nlohmann::json;

/// Where a shared item is, as it is written on the command line; a folder with '/' at the end.
std::string place(const std::u16string& bucket, const std::u16string& path)
{
    return RemotePath{toUtf8(bucket), toUtf8(path)}.text();
}

std::string folderPlace(const SharedFolderSummary& folder)
{
    const auto text = place(folder.bucket, folder.path);
    // A folder that is shared from the root on has its '/' already.
    return text.ends_with('/') ? text : text + "/";
}

template <class Shared>
json sharedJson(const Shared& item)
{
    auto document = toJson(item);
    document["path"] = toUtf8(item.path);
    document["bucket"] = toUtf8(item.bucket);
    return document;
}

void listShared(const Invocation& invocation)
{
    auto connection = invocation.connect();
    const auto response = connection.call(
        [&] { return connection.files().listSharedContent(std::make_unique<SharedContentList>()); });
    using enum Table::Align;
    Table table({left, right, left, left}, {"USER", "SIZE", "MODIFIED", "PATH"});
    auto documents = json::array();
    for (const auto& one : response->sharedContent) {
        const auto placed = [](const auto& item) { return !item.path.empty(); };
        requireTold(!one.sharedByUserId.empty() && std::ranges::all_of(one.sharedFolders, placed) &&
                        std::ranges::all_of(one.sharedFiles, placed),
                    "the user or the path of what is shared");
        const auto user = toUtf8(one.sharedByUserId);
        json document{{"user", user}, {"folders", json::array()}, {"files", json::array()}};
        for (const auto& folder : one.sharedFolders) {
            table.add({user, "-", humanTime(folder.lastModified), folderPlace(folder)});
            document["folders"].push_back(sharedJson(folder));
        }
        for (const auto& file : one.sharedFiles) {
            table.add(
                {user, humanSize(file.size), humanTime(file.lastModified), place(file.bucket, file.path)});
            document["files"].push_back(sharedJson(file));
        }
        documents.push_back(document);
    }
    invocation.out.list(table.text(), "shared", documents);
}

} // namespace

Verb shared()
{
    return {.name = "shared",
            .summary = "List what others let you read",
            .examples = "  tarn shared",
            .takes = {},
            .run = listShared};
}

} // namespace tarncli::verbs
