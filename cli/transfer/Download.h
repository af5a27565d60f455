#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/DownloadFolder.h"
#include "cli/transfer/RemoteTree.h"
#include "cli/transfer/Transfers.h"
#include "tarn/protocol/VersionInfo.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tarncli {

/// One file to fetch.
struct Download {
    RemotePath remote;
    connector::tarn::VersionInfo version; ///< empty id: the current one
    std::uint64_t size = 0;               ///< bytes, by sizeOf() or the listing it was found in
    std::uint64_t lastModified = 0;       ///< milliseconds since 1970; 0: not to be kept
    std::shared_ptr<const DownloadFolder> folder;
    std::string name;                            ///< in the folder
    std::shared_ptr<IncomingFile> incoming = {}; ///< while it is being fetched
    bool isLeft = false; ///< not to be fetched: it is here already, or could not be compared
};

struct DownloadOptions {
    Overwrite overwrite = Overwrite::refuse;
    Unfinished unfinished = Unfinished::remove;
    bool keepTimes = true;
};

/// What a download of a tree or of some files came to.
struct DownloadReport {
    TransferReport transfers; ///< `done` counts files and folders
    std::uint64_t files = 0;
    std::uint64_t folders = 0; ///< made; those that were there do not count
    std::uint64_t bytes = 0;
    std::uint64_t unchanged = 0; ///< files that were there with the same content
};

/// Fetches files and trees from the service.
class Downloader {
public:
    Downloader(Connection& openConnection, Output& output, DownloadOptions chosen)
        : connection(openConnection), out(output), options(chosen)
    {
    }

    /// Notes a file for run().
    void add(Download download)
    {
        ++sources;
        downloads.push_back(std::move(download));
    }

    /// Lists the tree, makes its folders below `local`, and notes the files for run(). A folder that could
    /// not be listed or made is told and reported; the others go on.
    void addTree(const RemotePath& remote, const std::filesystem::path& local);

    /// Fetches what was noted, but not what is here already with the same content.
    DownloadReport run();

private:
    void addFolder(const RemoteFolder& remote, const std::shared_ptr<const DownloadFolder>& local);
    void refuseImpossible();
    void leaveWhatIsHere();
    Transfer transferOf(Download& download);
    connector::Future<bool> fetch(Download& download);
    void conclude(Download& download);
    void lookAgain(Download& download);

    Connection& connection;
    Output& out;
    DownloadOptions options;
    std::vector<Download> downloads;
    unsigned sources = 0; ///< that were named
    MovedBytes moved = countFromZero();
    DownloadReport report;
};

} // namespace tarncli
