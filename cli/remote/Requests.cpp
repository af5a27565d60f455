#include "cli/remote/Requests.h"

#include "cli/remote/Answer.h"
#include "cli/remote/StoredNames.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli {

using namespace connector::tarn;
using connector::Future;

namespace {

template <class Summary>
FileAttributes commonAttributesOf(const Summary& item)
{
    FileAttributes attributes;
    attributes.name = item.name;
    attributes.created = item.created;
    attributes.lastModified = item.lastModified;
    attributes.writable = item.writable;
    attributes.watermark = item.watermark;
    return attributes;
}

} // namespace

FileAttributes readAttributes(Connection& connection, const RemotePath& item)
{
    const auto response = connection.call(
        [&] { return connection.files().readFileAttributes(requestFor<FileAttributesRead>(item)); });
    const auto& attributes = response->attributes;
    requireTold(!attributes.name.empty(), "the name of the item");
    requireTold(isFolder(attributes) || attributes.type == "FILE", "the type of the item");
    return attributes;
}

FileAttributes attributesOf(Connection& connection, const RemotePath& item)
{
    const auto attributes = naming(item, [&] { return readAttributes(connection, item); });
    if (item.asFolder && !isFolder(attributes))
        throw Failure(ExitCode::conflict, item.quoted() + " is a file; leave out the '/' at the end.");
    return attributes;
}

std::optional<FileAttributes> findAttributes(Connection& connection, const RemotePath& item)
{
    // Told by the answer rather than asked before: nothing can come in between.
    try {
        return readAttributes(connection, item);
    } catch (const std::exception&) {
        const auto error = std::current_exception();
        // The one answer that also stands for "you may not know of it".
        if (isRefusal(error, reasons::notFound)) return {};
        throw about(item.quoted(), explain(error));
    }
}

Future<std::unique_ptr<FolderListResponse>> requestListing(Connection& connection, const RemotePath& folder)
{
    using Reply = std::unique_ptr<FolderListResponse>;
    return connection.files().listFolder(requestFor<FolderList>(folder)).then([](Future<Reply>&& ready) {
        auto reply = ready.get();
        const auto named = [](const auto& item) { return !item.name.empty(); };
        requireTold(named(reply->folder), "the name of the folder");
        requireTold(std::ranges::all_of(reply->files, named), "the name of a file");
        requireTold(std::ranges::all_of(reply->folders, named), "the name of a folder");
        return reply;
    });
}

FileSummary summaryOf(const FileAttributes& attributes)
{
    return {attributes.name, attributes.created,  attributes.lastModified,
            attributes.size, attributes.writable, attributes.watermark};
}

FileAttributes attributesOf(const FileSummary& file)
{
    auto attributes = commonAttributesOf(file);
    attributes.size = file.size;
    attributes.type = "FILE";
    return attributes;
}

FileAttributes attributesOf(const FolderSummary& folder)
{
    auto attributes = commonAttributesOf(folder);
    attributes.type = "FOLDER";
    return attributes;
}

nlohmann::json toJson(const FileSummary& file)
{
    return {
        {"name", decodedName(toUtf8(file.name))}, {"size", file.size},         {"created", file.created},
        {"lastModified", file.lastModified},      {"writable", file.writable}, {"watermark", file.watermark}};
}

nlohmann::json toJson(const FolderSummary& folder)
{
    return {{"name", decodedName(toUtf8(folder.name))},
            {"created", folder.created},
            {"lastModified", folder.lastModified},
            {"writable", folder.writable},
            {"watermark", folder.watermark}};
}

nlohmann::json toJson(const RemotePath& where, const FileAttributes& item)
{
    auto document = toJson(summaryOf(item));
    document["path"] = where.text();
    document["type"] = isFolder(item) ? "folder" : "file";
    return document;
}

} // namespace tarncli
