#pragma once

#include "cli/remote/ContentTarget.h"
#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"
#include "tarn/protocol/VersionInfo.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace tarncli {

/// More or fewer bytes have arrived than the file has: another has replaced it since its size was told, or the
/// service is wrong. Ask for the size again and try once more to tell which.
class SizeDiffers : public Failure {
public:
    SizeDiffers(std::uint64_t arrived, std::uint64_t told);
};

/// The size in bytes of a file, or of its version when one is named.
/// @throws what a request fails with; Failure (conflict) for a folder
std::uint64_t sizeOf(Connection& connection, const RemotePath& file,
                     const connector::tarn::VersionInfo& version);

/// Sends the request for what `target` lacks of a content. It starts over when the target has not the beginning of what
/// the file is now, or nothing tells of which version. The future tells, when the target has all of it, the SHA-256 of
/// that; empty: the service does not.
/// @param size  fails with SizeDiffers a content that has another, when there is no digest to compare it with
connector::Future<std::string> requestContent(Connection& connection, const RemotePath& file,
                                              const connector::tarn::VersionInfo& version, std::uint64_t size,
                                              const std::shared_ptr<ContentTarget>& target);

/// Whether what a target has got by then is of no use to another request; any other failure may pass.
bool isPartWrong(const std::exception_ptr& error);

/// Asks for the SHA-256 of a file that is not empty, or of its version when one is named; empty: the service does not
/// tell it.
connector::Future<std::string> requestDigest(Connection& connection, const RemotePath& file,
                                             const connector::tarn::VersionInfo& version = {});

/// Likewise, and waits for it. @throws what the request fails with
std::string digestOf(Connection& connection, const RemotePath& file);

/// What is a file's content now.
struct CurrentContent {
    std::uint64_t size = 0; ///< bytes
    std::string version; ///< the id of its version, and more once that was replaced in place; empty: not told
    std::string sha256;  ///< empty: not told
};

/// Asks for it. @param size  as far as known; of an empty file the service tells more when that is known
connector::Future<CurrentContent> requestCurrent(Connection& connection, const RemotePath& file,
                                                 std::uint64_t size);

/// Likewise, and waits for it. @throws what the requests fail with; Failure (conflict) for a folder
CurrentContent currentOf(Connection& connection, const RemotePath& file);

/// Brings a whole content to `target`, through as many requests as it takes.
/// @throws Failure
void fetchContent(Connection& connection, const RemotePath& file, const connector::tarn::VersionInfo& version,
                  const std::shared_ptr<ContentTarget>& target);

/// Likewise, into memory. @throws Failure also when it does not fit there
std::string readContent(Connection& connection, const RemotePath& file,
                        const connector::tarn::VersionInfo& version);

} // namespace tarncli
