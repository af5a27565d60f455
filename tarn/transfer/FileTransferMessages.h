#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/ServiceMessage.h"
#include "tarn/foundation/platform/ReactiveStreams.h"
#include "tarn/protocol/CreateMode.h"
#include "tarn/protocol/SessionRequest.h"
#include "tarn/protocol/VersionInfo.h"
#include "tarn/transfer/FileTransferServiceProvider.h"
#include "tarn/transfer/Sha256.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

/// Contents of any size, moved in pieces and hashed as they move.
///
/// Paths, buckets and failures are those of FileMessages.h, the '?' and '#' of a path included. `stop`, asked to
/// stop, breaks the exchange off at any time; the future then fails with the transport's failure.
namespace connector::tarn {

using ContentPublisher = std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>>;
using ContentSubscriber = std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>>;

/// Stores the content of a file while it is brought.
///
/// `content` is subscribed to once and asked for one item at a time, as the connection takes them; items of 64 to
/// 256 KiB serve best. The publisher is let go when the transfer has ended, not within one of its own signals.
///
/// Wire   PUT as FileCreate, FileUpdate; "createMode" by `createMode`, "createNewVersion"; header "Content-Type";
///        "Content-Length" when `size` is known, otherwise the content goes in chunks; "Content-Digest" with `sha256`,
///        "If-Match" with `ifVersion`
/// Fails  as FileCreate and FileUpdate; with the publisher's error; with std::runtime_error "The content ended after
///        ... of ... bytes." when it is not as long as `size` says; with StoredMismatch when the service has stored
///        something else; with std::invalid_argument without `content`, or when `sha256` is not 64 hexadecimal digits
struct TARN_API FileUpload : SessionRequest, MessageAPI<FileUpload, FileTransferServiceProvider> {
    using Response = struct FileUploadResponse;

    std::u16string path;
    std::u16string bucket; ///< with CreateMode::create always replaced by the session's user
    CreateMode createMode = CreateMode::create;
    bool createNewVersion = false; ///< true: keep what was there as an earlier version
    std::string contentType = "application/octet-stream";
    ContentPublisher content;
    std::optional<std::uint64_t> size; ///< bytes of all items together; nothing: not known
    /// Of the content, where it is known beforehand, as in FileUploadResponse: the service then stores nothing else.
    /// Empty: not known.
    std::string sha256;
    /// Nothing is stored, ErrorKind::conflict, unless this is the content that is there now: FileUploadResponse::tag or
    /// FileDownloadHead::versionId. With CreateMode::update, a file that is gone is ErrorKind::notFound. A quotation
    /// mark or control character in it is std::invalid_argument. Empty: whatever is there.
    std::string ifVersion;
    std::stop_token stop;
};

/// The version written: "VersionId", "VersionLabel".
struct TARN_API FileUploadResponse : Message, VersionInfo {
    std::string
        tag; ///< of the content stored: header "ETag", as FileDownloadHead::versionId; empty: not told
    std::uint64_t bytes = 0; ///< sent
    std::string sha256;      ///< of the bytes sent, 64 hexadecimal digits in lower case
    bool verified = false;   ///< the service has told a digest of what it stored, and it is this one
};

/// What is known of a download when its head has arrived.
struct TARN_API FileDownloadHead {
    std::optional<std::uint64_t>
        totalSize;            ///< bytes of the whole file; nothing: the service does not say yet
    std::uint64_t offset = 0; ///< in the file, of the first byte that is delivered
    bool isPart = false;      ///< the service sends no more than was asked for (status 206)
    /// Header "ETag", to be handed back as `ifVersion`: the version's id, and more once the service has replaced the
    /// content of that version in place; empty: not told
    std::string versionId;
    std::string sha256; ///< of the whole file, as in FileUploadResponse; empty: not told
};

/// Brings the content of a file, of the version named or of the current one, or a part of it.
///
/// `content` gets its subscription when the head of a success has arrived; before that, and when the operation fails
/// without one, it hears nothing. From then on it gets items as it asks for them, and then exactly one end or error,
/// after which the future is settled: what fails the one fails the other. An item that it throws out of ends the
/// transfer, and the future fails with what was thrown, as it does with what it throws out of the end or the error.
/// `Subscription::cancel` closes the connection, and the future fails with std::runtime_error "Content stream
/// cancelled.".
///
/// All of it arrives, or an error: a body that ends early and one whose SHA-256 is not the one that the service tells
/// (DigestMismatch) are errors, after the items. The latter is known of a whole file, of the end of one with `hash`,
/// and of a part where the service tells its own. A part that ends before both what was asked for and the file, or is
/// of another version than `ifVersion`, is an error without items.
///
/// With `ifVersion`, the part is wanted only of that version, which the caller has the beginning of. Of any other
/// the service sends the whole file, which `onHead` tells by an `offset` of 0. Without it, a service that knows
/// nothing of parts sends the whole file, too; the bytes that were not asked for are then dropped here. A part that
/// begins where the file ends is empty; a host that hands no headers over fails it, as one behind the end.
///
/// Wire   GET as FileRead; "Range" when `offset` or `length` is given, and then "If-Range" when `ifVersion` is
/// Fails  as FileRead; with what the service says of a part behind the end; with PartMismatch when another part comes
///        than was asked for, or the file of a service that knows nothing of parts ends before it; with
///        std::invalid_argument without `content`, for a part of no bytes, or when `hash` is of another number of
///        bytes than `offset`
struct TARN_API FileDownload : SessionRequest,
                               VersionInfo,
                               MessageAPI<FileDownload, FileTransferServiceProvider> {
    using Response = struct FileDownloadResponse;

    std::u16string path;
    std::u16string bucket;
    std::uint64_t offset = 0;            ///< bytes
    std::optional<std::uint64_t> length; ///< bytes, or fewer where the file ends; nothing: all the rest
    /// FileDownloadHead::versionId of the beginning, checked as FileUpload::ifVersion; empty: of whatever there is
    std::string ifVersion;
    /// Of the `offset` bytes that the caller has, so that the whole is verified; null: nobody knows it. Bytes that are
    /// delivered are added to it, and it begins anew where the whole file comes instead: when the future is settled,
    /// other than by `Subscription::cancel`, another download may go on from there. Once the subscriber has failed, it
    /// may be ahead of what that holds: hash that anew.
    std::shared_ptr<Sha256> hash;
    ContentSubscriber content;
    /// Called before the subscriber gets its subscription, on the same thread; empty: nobody asks. What it throws
    /// ends the transfer and fails the future.
    std::function<void(const FileDownloadHead&)> onHead;
    std::stop_token stop;
};

struct TARN_API FileDownloadResponse : Message, FileDownloadHead {
    std::uint64_t bytes = 0; ///< delivered
    /// The SHA-256 of the whole file is the one told: of the caller's beginning and what came where there is a `hash`.
    bool verified = false;
};

} // namespace connector::tarn
