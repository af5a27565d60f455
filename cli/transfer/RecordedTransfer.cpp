#include "cli/transfer/RecordedTransfer.h"

#include "cli/remote/FileContent.h"

#include <optional>

namespace tarncli {

using connector::Future;

namespace {

struct Note {
    Change change;
    std::optional<std::size_t> number = {}; ///< of what was begun
    unsigned starts = 0;
    bool isForgiven = false;
};

} // namespace

Transfer recorded(Connection& connection, Transfer transfer, Change change,
                  std::shared_ptr<const std::string> after)
{
    auto note = std::make_shared<Note>(Note{std::move(change)});
    auto* log = &connection.changes();
    transfer.start = [log, note, start = std::move(transfer.start)] {
        if (!note->number) note->number = log->begin(note->change);
        try {
            auto result = start();
            ++note->starts;
            return result;
        } catch (const std::exception&) { // before anything was sent
            if (note->starts == 0) log->notDone(*std::exchange(note->number, {}));
            throw;
        }
    };
    transfer.forgives = [note, forgives = std::move(transfer.forgives)](const std::exception_ptr& error) {
        return note->isForgiven = forgives(error);
    };
    transfer.succeeded = [log, note, after, succeeded = std::move(transfer.succeeded)] {
        if (note->number) {
            if (!note->isForgiven) log->done(*note->number, *after);
            // What is as it should be when it is asked for again may have been done by the first try.
            if (note->isForgiven && note->starts == 1) log->notDone(*note->number);
        }
        succeeded();
    };
    transfer.failed = [log, note, failed = std::move(transfer.failed)](const std::exception_ptr& error) {
        auto final = error;
        try {
            failed(error);
        } catch (const std::exception&) {
            final = std::current_exception();
        }
        if (note->number && isRefused(final)) log->notDone(*note->number);
        std::rethrow_exception(final);
    };
    return transfer;
}

std::map<std::string, std::string>
currentVersions(Connection& connection, Output& out,
                const std::vector<std::pair<RemotePath, std::uint64_t>>& filesAndSizes)
{
    std::map<std::string, std::string> versions;
    Transfers transfers(connection, out);
    for (const auto& [file, size] : filesAndSizes) {
        auto version = std::make_shared<std::string>();
        Transfer look;
        look.what = file.quoted();
        look.start = [&connection, where = file, bytes = size, version] {
            return requestCurrent(connection, where, bytes).then([version](Future<CurrentContent>&& reply) {
                *version = reply.get().version;
                return true;
            });
        };
        // The upload that follows tells what is wrong.
        look.forgives = [](const std::exception_ptr&) { return true; };
        look.succeeded = [&versions, path = file.stored(), version] { versions[path] = *version; };
        transfers.add(std::move(look));
    }
    transfers.run();
    return versions;
}

} // namespace tarncli
