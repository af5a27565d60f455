#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/LocalContent.h"
#include "cli/transfer/LocalTree.h"
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

/// What to do with a file that is there already.
enum class Existing { refuse, replace, addVersion, skip };

/// The file that is there already.
struct StoredFile {
    std::string watermark;
    std::uint64_t size = 0; ///< bytes
};

/// The folder that a tree is stored in, before.
enum class TargetFolder { missing, empty, exists };

/// One file to store.
struct Upload {
    Origin origin;
    RemotePath remote;
    std::uint64_t size = 0;                  ///< bytes, as far as known
    std::optional<StoredFile> existing = {}; ///< of the same name, as far as known
    Symlinks symlinks = Symlinks::follow;
    bool isLeft = false;     ///< not to be sent: it is there already, or could not be compared
    std::string sha256 = {}; ///< of the content, when it is to replace another in place; empty: not known
};

/// What an upload of a tree or of some files came to.
struct UploadReport {
    TransferReport transfers; ///< `done` counts files and folders
    std::uint64_t files = 0;
    std::uint64_t folders = 0; ///< made; those that were there do not count
    std::uint64_t bytes = 0;
    std::uint64_t unchanged = 0;      ///< files that were there with the same content
    std::vector<std::string> skipped; ///< paths of the sources
};

/// What the service has confirmed.
struct StoredContent {
    std::uint64_t bytes = 0;
    std::string sha256;
    std::string version; ///< as CurrentContent::version
};

/// What storing it changes. @param version  that is the current one before; empty: not known
Change changeBy(const Upload& upload, Existing existing, const std::string& version);

/// What is known of a content before it is sent.
struct KnownContent {
    std::string sha256 = {};   ///< the service stores nothing else; empty: not known
    std::string replaces = {}; ///< what it has stored instead, whose place this takes; empty: nothing
};

/// Stores one content; when it is of a file, its size is known.
connector::Future<StoredContent> storeContent(Connection& connection, const RemotePath& target,
                                              connector::tarn::ContentPublisher content,
                                              std::optional<std::uint64_t> size, Existing existing,
                                              bool exists, const KnownContent& known = {});

/// The SHA-256 of what an upload brings. @throws what a request fails with; Failure
std::string digestOfOrigin(Connection& connection, const Upload& upload);

/// Whether the service has it although no reply said so; nothing: nobody can tell.
std::optional<bool> isStored(Connection& connection, const Upload& upload);

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
    connector::Future<bool> send(const Upload& upload, const std::shared_ptr<StoredContent>& stored,
                                 const KnownContent& known);

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

/// @throws Failure when a file at `target` may not be stored there: it exists and nothing says what to do
/// with it, or it would be new in the bucket of another user, where the service makes no files
void requireStorable(const Connection& connection, const RemotePath& target, bool exists, Existing existing);

} // namespace tarncli
