#pragma once

#include "tarn/fileaccess/FileAccessServiceProvider.h"
#include "tarn/fileaccess/FileRecords.h"
#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/ServiceMessage.h"
#include "tarn/protocol/SessionRequest.h"
#include "tarn/protocol/VersionInfo.h"

#include <string>

/// Operations on files.
///
/// In every request: `path` is UTF-16, '/'-separated and begins with '/'; it becomes the tail of the URL,
/// where '?' and '#' are not escaped, so a path that holds them reaches another object. `bucket` is the name
/// of the user whose storage is meant, query parameter "bucket"; left empty, FileAccessClient fills in the
/// session's user.
///
/// Every operation fails with "File not found." (404), with the service's own sentence, with "Unknown error."
/// when the service gives none, with "TARN error: " and the body when a reply is not XML, with
/// std::invalid_argument or std::out_of_range when a number in a reply is malformed, or with the transport's
/// failure. Malformed UTF-16 (std::invalid_argument "The text is not well-formed UTF-16.") and an endpoint
/// that is not a URL (Poco::SyntaxException) are thrown by the provider's `handle`; a host delivers them through
/// the future.
namespace connector::tarn {

/// Stores a new file. Sent with the caller's content, which is moved out of the request, never copied.
///
/// Wire   PUT /service/v1/files{path}; "createMode" = "CREATE", "createNewVersion";
///        header "Content-Type"; the content as body
/// Fails  when the file exists already
struct TARN_API FileCreate : SessionRequest, MessageAPI<FileCreate, FileAccessServiceProvider> {
    using Response = struct FileCreateResponse;

    std::u16string path;
    std::u16string bucket; ///< always replaced by the session's user
    common::DataBuffer content;
    std::string contentType;
    bool createNewVersion = false; ///< sent, but does nothing here: a new file has one version either way
};

/// The version written: "VersionId", "VersionLabel".
struct TARN_API FileCreateResponse : Message, VersionInfo {};

/// Stores new content for a file that exists.
///
/// Wire   PUT /service/v1/files{path}; "createMode" = "UPDATE", "createNewVersion"; otherwise as FileCreate
struct TARN_API FileUpdate : SessionRequest, MessageAPI<FileUpdate, FileAccessServiceProvider> {
    using Response = struct FileUpdateResponse;

    std::u16string path;
    std::u16string bucket;
    common::DataBuffer content;
    std::string contentType;
    bool createNewVersion = false; ///< true: keep what was there as an earlier version
};

/// The version written: "VersionId", "VersionLabel".
struct TARN_API FileUpdateResponse : Message, VersionInfo {};

/// Reads a file's content, of the version named or of the current one.
///
/// Wire   GET /service/v1/files{path}; "versionId" and "versionLabel" only when `versionId` is not empty.
///        The reply is the content itself: any body of a 200 is taken for it, a proxy's page as well.
struct TARN_API FileRead : SessionRequest, VersionInfo, MessageAPI<FileRead, FileAccessServiceProvider> {
    using Response = struct FileReadResponse;

    std::u16string path;
    std::u16string bucket;
};

struct TARN_API FileReadResponse : Message {
    common::DataBuffer content; ///< the whole body, in the storage it arrived in
    std::string contentType;    ///< always "application/octet-stream"
};

/// Not offered by the service: fails with "Not implemented yet" and sends nothing.
struct TARN_API FileContentRead : SessionRequest, MessageAPI<FileContentRead, FileAccessServiceProvider> {
    using Response = struct FileContentReadResponse;
};

struct TARN_API FileContentReadResponse : Message {
    common::DataBuffer content;
    std::string contentType;
};

/// Not offered by the service: fails with "Not implemented yet" and sends nothing.
struct TARN_API FileContentWrite : SessionRequest, MessageAPI<FileContentWrite, FileAccessServiceProvider> {
    using Response = struct FileContentWriteResponse;
};

struct TARN_API FileContentWriteResponse : Message {};

/// Deletes a file with all its versions.
///
/// Wire   DELETE /service/v1/files{path}; "If-Match" with `ifVersion`
struct TARN_API FileDelete : SessionRequest, MessageAPI<FileDelete, FileAccessServiceProvider> {
    using Response = struct FileDeleteResponse;

    std::u16string path;
    std::u16string bucket;
    /// As FileUpload::ifVersion: only the file that has this content is deleted, and one that is gone is
    /// ErrorKind::notFound. Empty: whatever it has.
    std::string ifVersion;
};

struct TARN_API FileDeleteResponse : Message {};

/// Looks at one file or folder.
///
/// Wire   GET /service/v1/filesystem{path}
struct TARN_API FileAttributesRead : SessionRequest,
                                     MessageAPI<FileAttributesRead, FileAccessServiceProvider> {
    using Response = struct FileAttributesReadResponse;

    std::u16string path;
    std::u16string bucket;
};

struct TARN_API FileAttributesReadResponse : Message {
    FileAttributes attributes; ///< the reply's element "FileAttributes"
};

} // namespace connector::tarn
