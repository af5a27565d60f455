#include "cli/transfer/RemoteWalk.h"

#include "cli/remote/Requests.h"

#include <iterator>

namespace tarncli {

namespace {

using namespace connector::tarn;
using connector::Future;

constexpr int deepest = 256; ///< folders within folders; a service that goes on for ever is cut off there

void requireUsable(const RemotePath& where, int depth)
{
    const auto name = where.name();
    const bool isNoName = !where.isRoot() && (name.empty() || name == "." || name == "..");
    if (isNoName || name.find('\0') != std::string::npos)
        throw Failure(ExitCode::failure, "The service returned a folder name that is not valid.");
    if (const auto why = whyNotAddressable(name); !why.empty()) throw usageError(why);
    if (depth > deepest) throw Failure(ExitCode::failure, "The folders are nested too deeply.");
}

} // namespace

RemoteWalk::RemoteWalk(Connection& openConnection, Output& output, std::function<void(Folder&)> visit,
                       std::function<bool(const RemotePath&, int depth)> enters)
    : connection(openConnection)
    , visitor(std::move(visit))
    , entering(std::move(enters))
    , transfers(openConnection, output)
{
}

void RemoteWalk::add(const RemotePath& root)
{
    pending.push_back(Pending{{root, 0, {}}});
    transfers.add(listingOf(std::prev(pending.end())));
}

Transfer RemoteWalk::listingOf(Place place)
{
    using Reply = std::unique_ptr<FolderListResponse>;
    auto reply = std::make_shared<Reply>(); // outlives this when the reply comes after all was given up
    Transfer transfer;
    transfer.what = place->folder.where.quoted();
    transfer.start = [this, reply, where = place->folder.where, depth = place->folder.depth] {
        requireUsable(where, depth); // here, so that only this folder fails
        return requestListing(connection, where).then([reply](Future<Reply>&& listed) {
            *reply = listed.get();
            return true;
        });
    };
    transfer.succeeded = [this, reply, place] {
        place->folder.listing = std::move(*reply);
        take(place);
    };
    transfer.failed = [this, place](const std::exception_ptr&) {
        pending.erase(place);
        visitNext();
    };
    return transfer;
}

/// The first of those below is listed next: a walk into the depth keeps the least.
void RemoteWalk::take(Place place)
{
    const auto depth = place->folder.depth + 1;
    const auto next = std::next(place);
    for (const auto& summary : place->folder.listing->folders) {
        const auto name = toUtf8(summary.name);
        // It would be another folder, or this one.
        const bool isName = !name.empty() && name.find('/') == std::string::npos;
        const auto where = place->folder.where.child(isName ? name : "..");
        if (entering(where, depth)) pending.insert(next, Pending{{where, depth, {}}});
    }
    for (auto child = next; child != std::next(place);)
        transfers.addFirst(listingOf(--child));
    place->isSettled = true;
    visitNext();
}

void RemoteWalk::visitNext()
{
    while (!pending.empty() && pending.front().isSettled) {
        visitor(pending.front().folder);
        pending.pop_front();
    }
}

} // namespace tarncli
