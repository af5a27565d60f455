#include "cli/transfer/Comparison.h"

#include "cli/remote/FileContent.h"

namespace tarncli {

using connector::Future;

Transfer compare(Connection& connection, Comparison comparison, const MovedBytes& moved,
                 std::function<void(bool isSame)> tell)
{
    auto answer = std::make_shared<bool>(comparison.size == 0);
    Transfer transfer;
    transfer.what = comparison.what;
    transfer.start = [&connection, comparison, moved, answer] {
        if (const auto why = whyNotAddressable(comparison.remote.path); !why.empty()) throw usageError(why);
        if (comparison.size == 0) return connector::makeReadyFuture(true);
        // Read and hashed where the reply arrives, so that several files are at the same time.
        return requestDigest(connection, comparison.remote, comparison.version)
            .then([comparison, moved, answer](Future<std::string>&& told) {
                const auto digest = told.get();
                *answer = !digest.empty() && comparison.local().sha256(moved) == digest;
                return true;
            });
    };
    transfer.forgives = [answer](const std::exception_ptr& error) {
        return isRefusal(error, reasons::notFound);
    };
    transfer.succeeded = [answer, tell = std::move(tell)] { tell(*answer); };
    return transfer;
}

} // namespace tarncli
