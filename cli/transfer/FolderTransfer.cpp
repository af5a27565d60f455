#include "cli/transfer/FolderTransfer.h"

#include "cli/remote/Requests.h"
#include "cli/transfer/RecordedTransfer.h"

namespace tarncli {

using namespace connector::tarn;
using connector::Future;

Transfer folderTransfer(Connection& connection, const RemotePath& folder,
                        std::function<void(bool isNew)> succeeded,
                        std::function<void(const std::exception_ptr&)> failed)
{
    auto wasThere = std::make_shared<bool>(false);
    Transfer transfer;
    transfer.what = folder.quoted();
    transfer.start = [&connection, folder] {
        return connection.files()
            .createFolder(requestFor<FolderCreate>(folder))
            .then([](Future<std::unique_ptr<FolderCreateResponse>>&& reply) {
                reply.get();
                return true;
            });
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
