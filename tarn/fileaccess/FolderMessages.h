#pragma once

#include "tarn/fileaccess/FileAccessServiceProvider.h"
#include "tarn/fileaccess/FileRecords.h"
#include "tarn/foundation/ServiceMessage.h"
#include "tarn/protocol/SessionRequest.h"

#include <string>
#include <vector>

/// Operations on folders, moves, and what is shared. Paths, buckets and failures are as for FileMessages.h.
namespace connector::tarn {

/// Creates a folder; its parent must exist.
///
/// Wire   PUT /service/v1/folders{path}
struct TARN_API FolderCreate : SessionRequest, MessageAPI<FolderCreate, FileAccessServiceProvider> {
    using Response = struct FolderCreateResponse;

    std::u16string path;
    std::u16string bucket;
};

struct TARN_API FolderCreateResponse : Message {};

/// Lists one folder.
///
/// Wire   GET /service/v1/folders{path}
struct TARN_API FolderList : SessionRequest, MessageAPI<FolderList, FileAccessServiceProvider> {
    using Response = struct FolderListResponse;

    std::u16string path;
    std::u16string bucket;
};

struct TARN_API FolderListResponse : Message {
    FolderSummary folder;               ///< the listed folder itself: "FolderSummary"
    std::vector<FileSummary> files;     ///< items of "Files", in the order sent
    std::vector<FolderSummary> folders; ///< items of "Folders", in the order sent
};

/// Deletes a folder.
///
/// Wire   DELETE /service/v1/folders{path}; "forceRecursive", always
struct TARN_API FolderDelete : SessionRequest, MessageAPI<FolderDelete, FileAccessServiceProvider> {
    using Response = struct FolderDeleteResponse;

    std::u16string path;
    std::u16string bucket;
    bool forceRecursive = false; ///< with everything in it; otherwise only an empty one
};

struct TARN_API FolderDeleteResponse : Message {};

/// Moves or renames a file or folder.
///
/// Wire   PUT /service/v1/filesystem{path}; "targetPath" and "targetBucket", also when empty,
///        "moveTargetOverwrite"
struct TARN_API Move : SessionRequest, MessageAPI<Move, FileAccessServiceProvider> {
    using Response = struct MoveResponse;

    std::u16string path;
    std::u16string bucket;
    std::u16string targetPath;        ///< travels as a query value, so '?' and '#' are safe in it
    std::u16string targetBucket;      ///< empty: FileAccessClient fills in the session's user
    bool moveTargetOverwrite = false; ///< replace a target that exists
};

struct TARN_API MoveResponse : Message {};

/// Lists what other users share with the session's user.
///
/// Wire   GET /service/v1/sharedcontent
struct TARN_API SharedContentList : SessionRequest, MessageAPI<SharedContentList, FileAccessServiceProvider> {
    using Response = struct SharedContentListResponse;
};

struct TARN_API SharedContentListResponse : Message {
    std::vector<SharedContent> sharedContent; ///< every element "SharedContent", one per sharing user
};

/// Asks for a link by which anyone can open an item without logging in.
///
/// Wire   GET /service/v1/public/urls{path}
struct TARN_API PublicAccessUrlGet : SessionRequest,
                                     MessageAPI<PublicAccessUrlGet, FileAccessServiceProvider> {
    using Response = struct PublicAccessUrlGetResponse;

    std::u16string path;
    std::u16string bucket;
};

struct TARN_API PublicAccessUrlGetResponse : Message {
    std::u16string url; ///< "PublicAccessUrl"; empty when the reply has not exactly one
};

} // namespace connector::tarn
