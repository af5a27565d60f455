#pragma once

#include "cli/transfer/LocalTree.h"
#include "cli/transfer/Storing.h"
#include "cli/transfer/Transfers.h"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarncli {

/// The folder that a tree is stored in, before.
enum class TargetFolder { missing, empty, exists };

/// What an upload of a tree or of some files came to.
struct UploadReport {
    TransferReport transfers; ///< `done` counts files and folders
    std::uint64_t files = 0;
    std::uint64_t folders = 0; ///< made; those that were there do not count
    std::uint64_t bytes = 0;
    std::uint64_t unchanged = 0;      ///< files that were there with the same content
    std::vector<std::string> skipped; ///< paths of the sources
};

/// Stores files and trees in the service.
class Uploader {
public:
    Uploader(Connection& openConnection, Output& output, Existing whatExists)
        : connection(openConnection), out(output), existing(whatExists)
    {
    }

    /// Notes a file for run().
    void add(Upload upload)
    {
        ++sources;
        uploads.push_back(std::move(upload));
    }

    /// Makes a folder that is missing; its parent must be there. @throws Failure
    void makeFolder(const RemotePath& folder);

    /// Makes `target` and the folders below it as the source has them, and notes the files for run(). Folders
    /// that are there are merged into.
    void addTree(SourceTree source, const RemotePath& target, TargetFolder state);

    /// Stores what was noted, but not what is there already with the same content.
    UploadReport run();

private:
    struct Folders;

    void makeFolders(Folders& folders);
    void addFolder(Transfers& transfers, Folders& folders, const std::string& below);
    void lookInto(Folders& folders);
    void addFiles(const Folders& folders);
    void fail(const Origin& origin, const Failure& failure);
    void skip(const Origin& origin, const std::string& reason);
    void refuseTwins();
    void leaveWhatIsThere();
    std::map<std::string, std::string> versionsBefore();
    Connection& connection;
    Output& out;
    Existing existing;
    std::vector<Upload> uploads;
    unsigned sources = 0; ///< that were named
    MovedBytes moved = countFromZero();
    UploadReport report;
};

/// Stores all of standard input as it comes.
/// @param bytes  how many came
void uploadStandardInput(Connection& connection, const RemotePath& target, Existing existing, bool exists,
                         std::uint64_t& bytes);

} // namespace tarncli
