#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/Transfers.h"
#include "tarn/fileaccess/FolderMessages.h"

#include <functional>
#include <list>
#include <memory>

namespace tarncli {

/// A walk through remote folders and all below them: several are listed at a time, each once, and they are visited in
/// order. What has been visited is forgotten, so that memory goes by the width of a tree and not by its size.
///
/// Everything but the requests happens on the thread that calls run().
class RemoteWalk {
public:
    struct Folder {
        RemotePath where;
        int depth = 0; ///< below the folder that the walk began with
        std::unique_ptr<connector::tarn::FolderListResponse> listing;
    };

    /// @param visit   called with each folder: before those below it, which come before its next sibling
    /// @param enters  whether a folder below one that was added is listed; asked before its parent is visited
    RemoteWalk(
        Connection& openConnection, Output& output, std::function<void(Folder&)> visit,
        std::function<bool(const RemotePath&, int depth)> enters = [](const RemotePath&, int) {
            return true;
        });

    void add(const RemotePath& root);

    /// A request of the visitor; it is sent before more folders are listed.
    void addFirst(Transfer transfer) { transfers.addFirst(std::move(transfer)); }

    /// @return `done` counts what has succeeded; folders that could not be listed have failed
    TransferReport run() { return transfers.run(); }

private:
    struct Pending {
        Folder folder;
        bool isSettled = false;
    };

    using Place = std::list<Pending>::iterator;

    Transfer listingOf(Place place);
    void take(Place place);
    void visitNext();

    Connection& connection;
    std::function<void(Folder&)> visitor;
    std::function<bool(const RemotePath&, int)> entering;
    std::list<Pending> pending; ///< in the order of the visits
    Transfers transfers;
};

} // namespace tarncli
