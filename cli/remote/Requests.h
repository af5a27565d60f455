#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"
#include "cli/terminal/Text.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/fileaccess/FolderMessages.h"

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

/// Requests about an item, and records as JSON.
namespace tarncli {

/// A request with its path and bucket filled in.
template <class Request>
std::unique_ptr<Request> requestFor(const RemotePath& item)
{
    auto request = std::make_unique<Request>();
    request->path = toUtf16(item.path);
    request->bucket = toUtf16(item.bucket);
    return request;
}

inline bool isFolder(const connector::tarn::FileAttributes& attributes)
{
    return attributes.type == "FOLDER";
}

/// @throws what the request fails with; Failure when the answer does not tell what the item is
connector::tarn::FileAttributes readAttributes(Connection& connection, const RemotePath& item);

/// Likewise. @throws Failure with the item in front; conflict when a path ends with '/' and is a file's
connector::tarn::FileAttributes attributesOf(Connection& connection, const RemotePath& item);

/// Nothing when there is no such item.
std::optional<connector::tarn::FileAttributes> findAttributes(Connection& connection, const RemotePath& item);

/// Sends the request for a listing. The future fails with Failure when the answer is no listing of a folder.
connector::Future<std::unique_ptr<connector::tarn::FolderListResponse>>
requestListing(Connection& connection, const RemotePath& folder);

/// Runs `action`; a failure is thrown as a Failure with the item in front.
template <class Action>
auto naming(const RemotePath& item, Action action)
{
    try {
        return action();
    } catch (const std::exception&) {
        throw about(item.quoted(), explain(std::current_exception())).on(item.stored());
    }
}

/// What a file's attributes have in common with its entry in a listing.
connector::tarn::FileSummary summaryOf(const connector::tarn::FileAttributes& attributes);

/// What a listing tells of an item.
connector::tarn::FileAttributes attributesOf(const connector::tarn::FileSummary& file);
connector::tarn::FileAttributes attributesOf(const connector::tarn::FolderSummary& folder);

nlohmann::json toJson(const connector::tarn::FileSummary& file);
nlohmann::json toJson(const connector::tarn::FolderSummary& folder);
/// With where it is, and what.
nlohmann::json toJson(const RemotePath& where, const connector::tarn::FileAttributes& item);

} // namespace tarncli
