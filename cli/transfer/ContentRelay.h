#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"
#include "cli/transfer/MovedBytes.h"
#include "tarn/transfer/FileTransferMessages.h"

namespace tarncli {

/// Asks for the content of a remote file, for an upload that takes it at its own pace: nothing comes before that asks,
/// and little waits in between. What fails the download fails the upload, and an upload that ends breaks it off.
/// @param size   bytes that the file has; more are refused
/// @param moved  counts what has gone by
connector::tarn::ContentPublisher contentOf(Connection& connection, const RemotePath& file,
                                            std::uint64_t size, const MovedBytes& moved);

} // namespace tarncli
