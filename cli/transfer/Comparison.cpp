#include "cli/transfer/Comparison.h"

#include "cli/remote/FileContent.h"
#include "cli/terminal/Output.h"
#include "tarn/foundation/Composition.h"

namespace tarncli {

using connector::Future;

namespace {

Future<bool> areEqual(Future<std::string> one, Future<std::string> other,
                      const std::shared_ptr<Compared>& answer)
{
    std::vector<Future<std::string>> both;
    both.push_back(std::move(one));
    both.push_back(std::move(other));
    return connector::whenAll(std::move(both))
        .then([answer](Future<std::vector<Future<std::string>>>&& settled) {
            auto digests = settled.get();
            const auto first = digests.front().get();
            answer->sha256 = digests.back().get();
            answer->isSame = !first.empty() && first == answer->sha256;
            return true;
        });
}

} // namespace

Transfer compare(Connection& connection, Comparison comparison, const MovedBytes& moved,
                 std::function<void(const Compared&)> tell)
{
    auto answer = std::make_shared<Compared>(Compared{comparison.size == 0});
    Transfer transfer;
    transfer.what = comparison.what;
    transfer.bytes = comparison.size;
    transfer.start = [&connection, comparison, moved, answer] {
        if (const auto why = whyNotAddressable(comparison.remote.path); !why.empty()) throw usageError(why);
        if (comparison.size == 0) return connector::makeReadyFuture(true);
        auto digest = requestDigest(connection, comparison.remote, comparison.version);
        if (const auto* remote = std::get_if<RemotePath>(&comparison.other))
            return areEqual(std::move(digest), requestDigest(connection, *remote), answer);
        // Read and hashed where the reply arrives, so that several files are at the same time.
        return digest.then([open = std::get<0>(comparison.other), moved, answer](Future<std::string>&& told) {
            const auto text = told.get();
            if (text.empty()) return true;
            answer->sha256 = open().sha256(moved);
            answer->isSame = answer->sha256 == text;
            return true;
        });
    };
    transfer.forgives = [answer](const std::exception_ptr& error) {
        return isRefusal(error, reasons::notFound);
    };
    transfer.succeeded = [answer, tell = std::move(tell)] { tell(*answer); };
    return transfer;
}

Comparisons::Comparisons(Connection& openConnection, Output& output)
    : connection(openConnection), out(output), transfers(openConnection, output, compared)
{
}

void Comparisons::add(Comparison comparison, std::function<void(const Compared&)> tell)
{
    total += comparison.size;
    ++files;
    transfers.add(compare(connection, std::move(comparison), compared, std::move(tell)));
}

TransferReport Comparisons::run()
{
    out.progress().begin("Comparing", total, files);
    auto report = transfers.run();
    out.progress().end();
    report.done = 0;
    return report;
}

} // namespace tarncli
