#include "cli/sync/UploadConfirmation.h"

#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/terminal/Output.h"
#include "cli/transfer/Transfers.h"

#include <set>

namespace tarncli {

using namespace connector::tarn;
using connector::Future;

namespace {

using Listing = std::unique_ptr<FolderListResponse>;

class Confirmation {
public:
    Confirmation(Connection& openConnection, Output& output, const Pair& syncedPair,
                 const std::map<std::string, Journal::Entry>& uploadedFiles, Journal& pairJournal)
        : connection(openConnection)
        , out(output)
        , pair(syncedPair)
        , uploaded(uploadedFiles)
        , journal(pairJournal)
        , transfers(connection, out)
    {
    }

    void run()
    {
        std::set<std::string> folders;
        for (const auto& [place, entry] : uploaded)
            folders.insert(placeAbove(place));
        for (const auto& folder : folders)
            transfers.add(listing(folder));
        out.progress().begin("Checking", 0, uploaded.size() + folders.size());
        transfers.run();
        out.progress().end();
    }

private:
    Transfer listing(const std::string& folder)
    {
        auto reply = std::make_shared<Listing>();
        Transfer transfer;
        transfer.what = pair.remoteAt(folder).quoted();
        transfer.start = [this, reply, where = pair.remoteAt(folder)] {
            return requestListing(connection, where).then([reply](Future<Listing>&& listed) {
                *reply = listed.get();
                return true;
            });
        };
        transfer.forgives = [reply](const std::exception_ptr& error) {
            *reply = std::make_unique<FolderListResponse>();
            return isRefusal(error, reasons::notFound);
        };
        transfer.succeeded = [this, reply, folder] { compare(folder, **reply); };
        return transfer;
    }

    void compare(const std::string& folder, const FolderListResponse& listed)
    {
        for (const auto& file : listed.files) {
            const auto name = decodedName(toUtf8(file.name));
            const auto place = folder.empty() ? name : folder + "/" + name;
            const auto found = uploaded.find(place);
            if (found == uploaded.end() || found->second.size != file.size) continue;
            auto entry = found->second;
            entry.watermark = file.watermark;
            if (file.size == 0)
                journal.note(place, entry);
            else
                transfers.addFirst(digest(place, std::move(entry)));
        }
    }

    Transfer digest(const std::string& place, Journal::Entry entry)
    {
        auto isSame = std::make_shared<bool>(false);
        Transfer transfer;
        transfer.what = pair.remoteAt(place).quoted();
        transfer.start = [this, isSame, where = pair.remoteAt(place), sha256 = entry.sha256] {
            return requestDigest(connection, where).then([isSame, sha256](Future<std::string>&& digest) {
                *isSame = digest.get() == sha256;
                return true;
            });
        };
        transfer.forgives = [](const std::exception_ptr& error) {
            return isRefusal(error, reasons::notFound);
        };
        transfer.succeeded = [this, isSame, place, entry = std::move(entry)] {
            if (*isSame) journal.note(place, entry);
        };
        return transfer;
    }

    Connection& connection;
    Output& out;
    const Pair& pair;
    const std::map<std::string, Journal::Entry>& uploaded;
    Journal& journal;
    Transfers transfers;
};

} // namespace

void confirmUploads(Connection& connection, Output& out, const Pair& pair,
                    const std::map<std::string, Journal::Entry>& uploaded, Journal& journal)
{
    Confirmation(connection, out, pair, uploaded, journal).run();
}

} // namespace tarncli
