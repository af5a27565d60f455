#pragma once

#include "tarnd/http/Call.h"
#include "tarnd/http/Reply.h"

/// What the service does for each line of the route table. A handler reads the parameters, calls the store
/// and writes the reply document; it fails by throwing ServiceError.
namespace tarnd {

// SessionHandlers.cpp
Reply login(Call& call);
Reply logout(Call& call);
Reply ping(Call& call);

// FileHandlers.cpp
void beginFile(Call& call);
Reply putFile(Call& call);
Reply readFile(Call& call);
Reply deleteFile(Call& call);
Reply openHandle(Call& call);
Reply closeHandle(Call& call);

// FolderHandlers.cpp
Reply readAttributes(Call& call);
Reply move(Call& call);
Reply createFolder(Call& call);
Reply listFolder(Call& call);
Reply deleteFolder(Call& call);

// SharingHandlers.cpp
Reply grantPermission(Call& call);
Reply revokePermission(Call& call);
Reply listPermissions(Call& call);
Reply listSharedContent(Call& call);
Reply getPublicUrl(Call& call);
Reply createPublicLink(Call& call);
Reply listPublicLinks(Call& call);
Reply revokePublicLink(Call& call);

// PublicPages.cpp
Reply openPublicLink(Call& call);

// WebHandlers.cpp
Reply readWebFile(Call& call);
Reply downloadItem(Call& call);

// MonitorHandlers.cpp
Reply tellLive(Call& call);
Reply tellReady(Call& call);
Reply tellMetrics(Call& call);

// VersionHandlers.cpp
Reply listVersions(Call& call);
Reply restoreVersion(Call& call);

} // namespace tarnd
