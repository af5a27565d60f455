#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/LocalContent.h"
#include "cli/transfer/Transfers.h"
#include "tarn/protocol/VersionInfo.h"

#include <functional>
#include <string>
#include <variant>

namespace tarncli {

/// Two contents of one size, one of them in the service.
struct Comparison {
    std::string what; ///< named in front of a failure
    /// The other one, which is opened when its turn has come, on any thread; or it is in the service as well.
    std::variant<std::function<LocalContent()>, RemotePath> other;
    RemotePath remote;
    connector::tarn::VersionInfo version = {}; ///< empty id: the current one
    std::uint64_t size = 0;                    ///< bytes of both
};

struct Compared {
    bool isSame = false;
    std::string sha256 = {}; ///< of the other one; empty: it was not needed
};

/// The request that tells whether both have the same SHA-256. A remote file that is gone is different, and so is one of
/// which the service tells no digest.
/// @param moved  counts what has been compared
/// @param tell   called with the answer, on the thread of Transfers::run()
Transfer compare(Connection& connection, Comparison comparison, const MovedBytes& moved,
                 std::function<void(const Compared&)> tell);

/// Many of them, at the same time and with progress, before the first transfer of a command.
class Comparisons {
public:
    Comparisons(Connection& openConnection, Output& output);

    /// @param tell  as for compare()
    void add(Comparison comparison, std::function<void(const Compared&)> tell);

    /// What has failed; nothing counts as done, since looking transfers nothing.
    TransferReport run();

private:
    Connection& connection;
    Output& out;
    const MovedBytes compared = countFromZero();
    Transfers transfers;
    std::uint64_t total = 0; ///< bytes
    std::uint64_t files = 0;
};

} // namespace tarncli
