#include "cli/remote/Requests.h"

#include <nlohmann/json.hpp>

namespace tarncli {

using namespace connector::tarn;

namespace {

FileAttributes readAttributes(Connection& connection, const RemotePath& item)
{
    const auto response = connection.call(
        [&] { return connection.files().readFileAttributes(requestFor<FileAttributesRead>(item)); });
    return response->attributes;
}

} // namespace

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
        if (isAnswer(error, answers::notFound)) return {};
        throw about(item.quoted(), explain(error));
    }
}

std::unique_ptr<FolderListResponse> listFolder(Connection& connection, const RemotePath& folder)
{
    return connection.call([&] { return connection.files().listFolder(requestFor<FolderList>(folder)); });
}

FileSummary summaryOf(const FileAttributes& attributes)
{
    return {attributes.name, attributes.created,  attributes.lastModified,
            attributes.size, attributes.writable, attributes.watermark};
}

nlohmann::json toJson(const FileSummary& file)
{
    return {{"name", toUtf8(file.name)},         {"size", file.size},         {"created", file.created},
            {"lastModified", file.lastModified}, {"writable", file.writable}, {"watermark", file.watermark}};
}

nlohmann::json toJson(const FolderSummary& folder)
{
    return {{"name", toUtf8(folder.name)},
            {"created", folder.created},
            {"lastModified", folder.lastModified},
            {"writable", folder.writable},
            {"watermark", folder.watermark}};
}

} // namespace tarncli
