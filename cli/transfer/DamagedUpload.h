#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"
#include "cli/transfer/Storing.h"
#include "cli/transfer/Transfers.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

/// Uploads that something between here and the service changes.
///
/// One that replaces a content in place tells its SHA-256 beforehand, and the service stores nothing else. Any other
/// shows in the reply; it is then sent once more with its SHA-256, in the place of what was stored. When that does not
/// come through either, what was there before is brought back. What somebody else has stored there since is never
/// touched.
namespace tarncli {

/// What has become of one so far.
struct DamagedUpload {
    std::string sha256 = {}; ///< of what was to be stored; empty: it was not damaged yet
    bool wasStored = false;  ///< something else
    std::string stored = {}; ///< that, as CurrentContent::version; empty: not told

    /// Nothing but that something else was stored is of interest.
    void note(const std::exception_ptr& error);

    /// For the next try.
    KnownContent known(const Upload& upload) const
    {
        return {sha256.empty() ? upload.sha256 : sha256, stored.empty() ? upload.ifVersion : stored,
                !stored.empty()};
    }
};

/// Fills in Upload::sha256 of those that replace a content in place, which are read for it, several at the same time
/// and with progress.
void learnDigests(Connection& connection, Output& out, std::vector<Upload>& uploads);

/// Makes an upload that arrives damaged go once more, and tells what has become of it when that fails. Called when the
/// rest of `transfer` is there.
/// @param damaged  what `Transfer::start` looks at
/// @param before   the version that was current; empty: there was none, or it is not known
void sendDamagedAgain(Transfer& transfer, Connection& connection, const std::shared_ptr<const Upload>& upload,
                      Existing existing, const std::string& before,
                      const std::shared_ptr<DamagedUpload>& damaged);

/// For one that cannot be sent again: brings back what was there, if that can be done, and tells what has become of it.
/// @param exists  a file was there before
/// @throws Failure
[[noreturn]] void takeDamagedBack(Connection& connection, const RemotePath& target, bool exists,
                                  const std::string& before, const DamagedUpload& damaged);

} // namespace tarncli
