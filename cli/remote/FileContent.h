#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/protocol/VersionInfo.h"

#include <cstdint>
#include <memory>

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

/// Sends the request for a content, whose size is the caller's to compare.
connector::Future<std::unique_ptr<connector::tarn::FileReadResponse>>
requestContent(Connection& connection, const RemotePath& file, const connector::tarn::VersionInfo& version);

/// A whole content, in memory.
/// @throws Failure when it has not the size that the service tells, or does not fit into memory
std::unique_ptr<connector::tarn::FileReadResponse> readContent(Connection& connection, const RemotePath& file,
                                                               const connector::tarn::VersionInfo& version);

} // namespace tarncli
