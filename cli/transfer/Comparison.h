#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/LocalContent.h"
#include "cli/transfer/Transfers.h"
#include "tarn/protocol/VersionInfo.h"

#include <functional>
#include <string>

namespace tarncli {

/// Two contents of one size, the one here and the other in the service.
struct Comparison {
    std::string what; ///< named in front of a failure
    /// Opens the local one, when its turn has come. Called on any thread. @throws Failure
    std::function<LocalContent()> local;
    RemotePath remote;
    connector::tarn::VersionInfo version = {}; ///< empty id: the current one
    std::uint64_t size = 0;                    ///< bytes of both
};

/// The request that tells whether both have the same SHA-256. A remote file that is gone is different, and so is one of
/// which the service tells no digest.
/// @param moved  counts what has been compared
/// @param tell   called with the answer, on the thread of Transfers::run()
Transfer compare(Connection& connection, Comparison comparison, const MovedBytes& moved,
                 std::function<void(bool isSame)> tell);

} // namespace tarncli
