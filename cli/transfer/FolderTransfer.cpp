#include "cli/transfer/FolderTransfer.h"

#include "cli/remote/Requests.h"
#include "cli/transfer/RecordedTransfer.h"
#include "tarn/protocol/TarnError.h"

namespace tarncli {

using namespace connector::tarn;
using connector::Future;

namespace {

/// Nothing that can be asked for puts a folder in the place of a file.
bool created(Future<std::unique_ptr<FolderCreateResponse>>&& reply)
{
    try {
        reply.get();
        return true;
    } catch (const TarnError& refusal) {
        if (refusal.reason() != reasons::fileExists) throw;
        throw TarnError(refusal.kind(), "It is a file; a folder cannot replace it.", refusal.status(), {});
    }
}

} // namespace

Transfer folderTransfer(Connection& connection, const RemotePath& folder,
                        std::function<void(bool isNew)> succeeded,
                        std::function<void(const std::exception_ptr&)> failed)
{
    auto wasThere = std::make_shared<bool>(false);
    Transfer transfer;
    transfer.what = folder.quoted();
    transfer.start = [&connection, folder] {
        return connection.files().createFolder(requestFor<FolderCreate>(folder)).then(created);
    };
    transfer.wasDone = [] { return false; };
    transfer.forgives = [wasThere](const std::exception_ptr& error) {
        *wasThere = isRefusal(error, reasons::folderExists);
        return *wasThere;
    };
    transfer.succeeded = [wasThere, succeeded = std::move(succeeded)] { succeeded(!*wasThere); };
    transfer.failed = std::move(failed);
    return recorded(connection, std::move(transfer), {Change::Kind::makeFolder, folder.stored()});
}

} // namespace tarncli
