#include "cli/remote/Aside.h"

#include "cli/remote/Change.h"
#include "cli/remote/NewFolder.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"

#include <chrono>

namespace tarncli {

using namespace connector::tarn;

bool isAside(const RemotePath& item)
{
    return (item.path + "/").starts_with(std::string(asidePath) + "/");
}

void putAside(Connection& connection, const RemotePath& item, const std::string& watermark)
{
    if (isAside(item) || item.isRoot())
        throw Failure(ExitCode::conflict, item.quoted() + " cannot be put aside; leave out --keep.");
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const RemotePath all{item.bucket, asidePath};
    const auto own = all.child(std::to_string(now));
    const auto target = own.child(item.name());
    naming(item, [&] {
        createMissingFolder(connection, all);
        createMissingFolder(connection, own);
        recorded(connection, {Change::Kind::move, item.stored(), target.stored(), watermark}, [&] {
            const auto send = [&] {
                auto request = requestFor<Move>(item);
                request->targetPath = toUtf16(target.path);
                request->targetBucket = toUtf16(target.bucket);
                return connection.files().move(std::move(request));
            };
            makeChange(connection, send, [&] { return !findAttributes(connection, item); });
            return std::string();
        });
    });
}

} // namespace tarncli
