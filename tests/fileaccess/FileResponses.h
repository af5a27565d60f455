#pragma once

#include "support/WireTest.h"
#include "tarn/fileaccess/FileAccessClient.h"
#include "tarn/fileaccess/FileAccessClientServiceProvider.h"

/// The responses of the file operations as text; see tarntest::show.
namespace connector::tarn {

using tarntest::fields;

inline std::string show(const FileSummary& file)
{
    return fields(file.name, file.created, file.lastModified, file.size, file.writable, file.watermark);
}

inline std::string show(const FolderSummary& folder)
{
    return fields(folder.name, folder.created, folder.lastModified, folder.writable, folder.watermark);
}

inline std::string show(const FileCreateResponse& written)
{
    return fields(written.versionId, written.versionLabel);
}

inline std::string show(const FileUpdateResponse& written)
{
    return fields(written.versionId, written.versionLabel);
}

inline std::string show(const FileReadResponse& file)
{
    return fields(file.contentType, file.content.bytes());
}

inline std::string show(const FileAttributesReadResponse& response)
{
    const auto& item = response.attributes;
    return fields(item.type, item.name, item.created, item.lastModified, item.size, item.writable,
                  item.watermark);
}

inline std::string show(const FileHandleReadOnlyCreateResponse& handle)
{
    return fields(handle.fileHandleId, handle.fileSize);
}

inline std::string show(const FileHandleReadWriteCreateResponse& handle)
{
    return fields(handle.fileHandleId, handle.fileSize, handle.fileCreated);
}

/// The folder itself, its files, and its folders, these after a '/'.
inline std::string show(const FolderListResponse& listing)
{
    std::string text = show(listing.folder) + "\n";
    for (const auto& file : listing.files)
        text += show(file) + "\n";
    for (const auto& folder : listing.folders)
        text += "/" + show(folder) + "\n";
    return text;
}

inline std::string show(const SharedContentListResponse& response)
{
    std::string text;
    for (const auto& content : response.sharedContent) {
        text += tarntest::asText(content.sharedByUserId) + ":\n";
        for (const auto& file : content.sharedFiles)
            text += fields(show(static_cast<const FileSummary&>(file)), file.path, file.bucket) + "\n";
        for (const auto& folder : content.sharedFolders)
            text += "/" +
                    fields(show(static_cast<const FolderSummary&>(folder)), folder.path, folder.bucket) +
                    "\n";
    }
    return text;
}

inline std::string show(const PublicAccessUrlGetResponse& link)
{
    return tarntest::asText(link.url);
}

} // namespace connector::tarn
