#pragma once

#include "tarn/fileaccess/FileAccessServiceProvider.h"
#include "tarn/foundation/ServiceMessage.h"
#include "tarn/protocol/CreateMode.h"
#include "tarn/protocol/SessionRequest.h"
#include "tarn/protocol/VersionInfo.h"

#include <cstdint>
#include <string>

/// Opening and closing files by handle. Paths, buckets and failures are as for FileMessages.h, but the path
/// travels as query parameter "path", so that '?' and '#' are safe in it.
namespace connector::tarn {

/// What closing a handle does with the changes made through it. Parameter "handleOperation".
enum class HandleOperation : std::uint32_t {
    commitChanges = 0, ///< "COMMIT_CHANGES"
    abortChanges = 1,  ///< "ABORT_CHANGES"
};

/// Opens a file for reading, in the version named or the current one.
///
/// Wire   PUT /service/v1/filehandle; "path" and "bucket" when not empty, "accessMode" = "readOnly", then
///        "versionId" and "versionLabel" only when `versionId` is not empty
struct TARN_API FileHandleReadOnlyCreate : SessionRequest,
                                           VersionInfo,
                                           MessageAPI<FileHandleReadOnlyCreate, FileAccessServiceProvider> {
    using Response = struct FileHandleReadOnlyCreateResponse;

    std::u16string path;
    std::u16string bucket;
};

struct TARN_API FileHandleReadOnlyCreateResponse : Message {
    std::string fileHandleId;   ///< "FileHandleId"
    std::uint64_t fileSize = 0; ///< "FileSize", bytes
};

/// Opens a file for writing. The version fields are carried but never sent.
///
/// Wire   PUT /service/v1/filehandle; "path" and "bucket" when not empty, "accessMode" = "readWrite",
///        "createMode" (left out for a value that is none of the three), "truncate"; header "Content-Type";
///        no body
struct TARN_API FileHandleReadWriteCreate : SessionRequest,
                                            VersionInfo,
                                            MessageAPI<FileHandleReadWriteCreate, FileAccessServiceProvider> {
    using Response = struct FileHandleReadWriteCreateResponse;

    std::u16string path;
    std::u16string bucket;
    CreateMode createMode = CreateMode::create;
    std::string contentType;
    bool truncate = false; ///< start from an empty file
};

struct TARN_API FileHandleReadWriteCreateResponse : Message {
    std::string fileHandleId;   ///< "FileHandleId"
    std::uint64_t fileSize = 0; ///< "FileSize", bytes
    bool fileCreated = false;   ///< "FileCreated": the handle created the file
};

/// Closes a handle.
///
/// Wire   DELETE /service/v1/filehandle/{handleId}; "handleOperation" (left out for a value that is neither),
///        "createNewVersion"
/// Fails  "Handle ID cannot be empty", before anything is sent
struct TARN_API FileHandleClose : SessionRequest, MessageAPI<FileHandleClose, FileAccessServiceProvider> {
    using Response = struct FileHandleCloseResponse;

    std::string handleId; ///< from the response that opened it; a '?' or '#' in it would cut it off there
    HandleOperation handleOperation = HandleOperation::commitChanges;
    bool createNewVersion = false;
};

struct TARN_API FileHandleCloseResponse : Message {};

} // namespace connector::tarn
