#pragma once

#include "cli/sync/Plan.h"
#include "cli/transfer/DownloadFolder.h"
#include "cli/transfer/Transfers.h"
#include "cli/transfer/Upload.h"

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace tarncli {

class Output;

/// What has been done of a plan.
struct SyncReport {
    TransferReport transfers; ///< `done` counts files and folders, those that were deleted too
    std::uint64_t files = 0;  ///< made or replaced
    std::uint64_t folders = 0;
    std::uint64_t bytes = 0;
    std::uint64_t deleted = 0;
};

/// Does what a plan says, and notes in the journal what is the same then.
///
/// Looks once more before a file of the target is replaced or deleted, and leaves one that has changed meanwhile.
/// Deletes nothing unless all else went well.
class Execution {
public:
    Execution(Connection& openConnection, Output& output, const Plan& planToDo, Journal& pairJournal)
        : connection(openConnection)
        , out(output)
        , plan(planToDo)
        , journal(pairJournal)
        , isUp(plan.direction == Direction::up)
    {
    }

    SyncReport run();

private:
    /// What is asked before the first file is replaced in the service, by where it is.
    struct Known {
        std::map<std::string, std::string> versions; ///< the current ones, where they are kept
        std::map<std::string, std::string> digests;  ///< of what takes the place of others
    };

    template <class Change>
    void change(const std::string& place, Change change);
    void noteWhatIsSame();
    void makeFolders();
    void makeRemoteRoot();
    void makeRemoteFolders();
    Known lookAhead();
    void copyFiles();
    Upload uploadOf(const Step& step) const;
    Transfer upload(const Step& step, const Known& known);
    Transfer download(const Step& step);
    void remove();
    void removeRemote(const Step& step, Transfers& transfers);
    void removeLocal(const Step& step);
    void removeRemoteFolders();
    Transfer afterLook(const Step& step, Transfers& transfers, std::function<Transfer()> next);
    std::shared_ptr<const DownloadFolder> folderAt(const std::string& place);
    std::string shownTarget(const std::string& place) const;
    bool isBelowFailed(const std::string& place) const;

    Connection& connection;
    Output& out;
    const Plan& plan;
    Journal& journal;
    const bool isUp;
    MovedBytes moved = countFromZero();
    SyncReport report;
    std::set<std::string> failedFolders;
    std::map<std::string, std::shared_ptr<const DownloadFolder>> localFolders;
    std::map<std::string, Journal::Entry> uploaded; ///< as yet without watermarks
};

} // namespace tarncli
