#include "cli/remote/NewFolder.h"

#include "cli/remote/Change.h"
#include "cli/remote/FileAbove.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"

namespace tarncli {

using namespace connector::tarn;

namespace {

void create(Connection& connection, const RemotePath& folder)
{
    const auto send = [&] { return connection.files().createFolder(requestFor<FolderCreate>(folder)); };
    const auto isMade = [&] {
        const auto found = findAttributes(connection, folder);
        return found && isFolder(*found);
    };
    recorded(connection, {Change::Kind::makeFolder, folder.stored()}, [&] {
        makeChange(connection, send, isMade);
        return std::string();
    });
}

} // namespace

void createFolder(Connection& connection, const RemotePath& folder)
{
    try {
        create(connection, folder);
    } catch (const std::exception&) {
        const auto error = std::current_exception();
        if (isRefusal(error, reasons::parentMissing)) throw withFileAbove(connection, folder, explain(error));
        if (!isRefusal(error, reasons::fileExists)) throw;
        throw Failure(ExitCode::conflict, folder.quoted() + " is a file; a folder cannot replace it.");
    }
}

bool createMissingFolder(Connection& connection, const RemotePath& folder)
{
    try {
        createFolder(connection, folder);
        return true;
    } catch (const std::exception&) {
        if (!isRefusal(std::current_exception(), reasons::folderExists)) throw;
        return false;
    }
}

} // namespace tarncli
