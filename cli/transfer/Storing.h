#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/LocalContent.h"
#include "cli/transfer/LocalTree.h"
#include "cli/transfer/Transfers.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// One content that becomes that of a file in the service.
namespace tarncli {

/// What to do with a file that is there already.
enum class Existing { refuse, replace, addVersion, skip };

/// The file that is there already.
struct StoredFile {
    std::string watermark;
    std::uint64_t size = 0; ///< bytes
};

/// One file to store.
struct Upload {
    Origin origin;
    RemotePath remote;
    std::uint64_t size = 0;                  ///< bytes, as far as known
    std::optional<StoredFile> existing = {}; ///< of the same name, as far as known
    Symlinks symlinks = Symlinks::follow;
    bool isLeft = false;     ///< not to be sent: it is there already, or could not be compared
    std::string sha256 = {}; ///< of the content, so that nothing else is stored; empty: not known
    /// As CurrentContent::version: nothing is stored unless the file has that now. Empty: whatever it has.
    std::string ifVersion = {};
};

/// What the service has confirmed.
struct StoredContent {
    std::uint64_t bytes = 0;
    std::string sha256;
    std::string version; ///< as CurrentContent::version
};

/// What is known of a content before it is sent.
struct KnownContent {
    std::string sha256 = {};    ///< as in Upload
    std::string ifVersion = {}; ///< likewise
    bool takesItsPlace = false; ///< that of this version, which was stored instead of it
};

/// Stores one content; when it is of a file, its size is known.
connector::Future<StoredContent> storeContent(Connection& connection, const RemotePath& target,
                                              connector::tarn::ContentPublisher content,
                                              std::optional<std::uint64_t> size, Existing existing,
                                              bool exists, const KnownContent& known = {});

/// The SHA-256 of what an upload brings. @throws what a request fails with; Failure
std::string digestOfOrigin(Connection& connection, const Upload& upload);

/// How it is stored.
struct StoringOptions {
    Existing existing = Existing::refuse;
    std::string before = {}; ///< the version that is current; empty: not known
    MovedBytes moved = countFromZero();
    std::function<void(const LocalContent&)> opened = [](const LocalContent&) {}; ///< called for each try
    std::function<void(const StoredContent&)> succeeded = [](const StoredContent&) {};
};

/// What stores it. It is sent once more when it arrives damaged, and written down for `tarn undo`.
Transfer storing(Connection& connection, const Upload& upload, StoringOptions options);

/// @throws Failure when a file at `target` may not be stored there: it exists and nothing says what to do
/// with it, or it would be new in the bucket of another user, where the service makes no files
void requireStorable(const Connection& connection, const RemotePath& target, bool exists, Existing existing);

} // namespace tarncli
