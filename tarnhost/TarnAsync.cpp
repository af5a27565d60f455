#include "tarnhost/TarnAsync.h"

#include "tarn/accesscontrol/PermissionMessages.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/fileaccess/FolderMessages.h"
#include "tarn/foundation/Composition.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/platform/TextConversion.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/publiclinks/PublicLinkMessages.h"
#include "tarn/session/SessionMessages.h"
#include "tarn/transfer/FileTransferMessages.h"
#include "tarn/versioning/VersionMessages.h"
#include "tarnhost/FileSink.h"
#include "tarnhost/FileSource.h"
#include "tarnhost/TarnHost.h"
#include "tarnhost/detail/NewFile.h"

#include <utility>

namespace connector::host {

namespace {

std::u16string wide(const std::string& text)
{
    return fl::i18n::to_ustring(text, fl::i18n::codecvt_string_to_ustring("UTF-8"));
}

std::string narrow(const std::u16string& text)
{
    return fl::i18n::to_string(text, fl::i18n::codecvt_ustring_to_string("UTF-8", true));
}

std::int64_t timeOf(std::uint64_t milliseconds)
{
    return static_cast<std::int64_t>(milliseconds);
}

/// One that does not begin with "/" would be glued to the address of the operation, and name another.
std::u16string pathOf(const Place& place)
{
    if (!place.path.starts_with('/'))
        throw tarn::TarnError(tarn::ErrorKind::invalidRequest,
                              "The path is not valid: it does not begin with '/'.", 0, "badPath");
    return wide(place.path);
}

template <class Request>
std::unique_ptr<Request> requestFor(const Place& place)
{
    auto request = std::make_unique<Request>();
    request->path = pathOf(place);
    request->bucket = wide(place.owner);
    return request;
}

template <class Record>
Entry entryOf(const Record& record)
{
    Entry entry{
        narrow(record.name), true, 0, timeOf(record.created), timeOf(record.lastModified), record.writable,
        record.watermark};
    if constexpr (requires { record.size; }) {
        entry.isFolder = false;
        entry.size = record.size;
    }
    return entry;
}

Version versionOf(const tarn::VersionInfo& info)
{
    return {info.versionLabel, info.versionId, {}};
}

/// What the login page of a network does, too: it answers everything with 200 and well-formed markup.
tarn::TarnError noService(const std::string& sign)
{
    constexpr std::uint16_t statusOk = 200;
    return {tarn::ErrorKind::unreadableReply,
            "What answers there is no Tarn service: it " + sign +
                ". Check the endpoint, and whether this network wants a login of its own.",
            statusOk};
}

/// Starts an operation at once. What keeps it from starting fails the future.
template <class Start>
auto started(Start start) -> decltype(start())
{
    return makeReadyFuture() | andThen(std::move(start));
}

/// Of an answer that says no more than that it is done.
template <class T>
Future<void> done(Future<T>&& future)
{
    return std::move(future) | andThen([](auto) {});
}

Future<Version> upload(const TarnHost& host, const Place& target, tarn::ContentPublisher content,
                       std::optional<std::uint64_t> size, IfThere ifThere)
{
    auto request = requestFor<tarn::FileUpload>(target);
    request->createMode =
        ifThere == IfThere::fail ? tarn::CreateMode::create : tarn::CreateMode::createOrUpdate;
    request->createNewVersion = ifThere == IfThere::keep;
    request->content = std::move(content);
    request->size = size;
    return host.fileTransfer()->uploadFile(std::move(request)) | andThen([](auto response) {
               // Nothing that stores a file keeps silent about both.
               if (!response->verified && response->versionId.empty()) throw noService("stored nothing");
               return versionOf(*response);
           });
}

} // namespace

Future<void> TarnAsync::logIn(const Tarn::Login& login)
{
    return started([&] {
        auto request = std::make_unique<tarn::Login>();
        request->user = wide(login.user);
        request->authenticationToken = login.token;
        const auto session = ownHost->session();
        // It takes the new user over at once, and would go on with it beside the old id.
        auto restore = [session, user = session->getUser(),
                        id = session->getSessionId()](std::exception_ptr failure) {
            session->setUser(user);
            session->setSessionId(id);
            std::rethrow_exception(failure);
        };
        return session->login(std::move(request)) | andThen([](auto response) {
                   if (response->sessionId.empty()) throw noService("gave no session");
               }) |
               recover(std::move(restore));
    });
}

Future<void> TarnAsync::logOut()
{
    return done(ownHost->session()->logout(nullptr));
}

Future<void> TarnAsync::ping()
{
    return done(ownHost->session()->ping(nullptr));
}

Future<Version> TarnAsync::put(const Place& target, const std::string& localFile, IfThere ifThere)
{
    return started([&] {
        auto source = FileSource::open(localFile);
        const auto size = source->size();
        return upload(*ownHost, target, std::move(source), size, ifThere);
    });
}

Future<void> TarnAsync::get(const Place& source, const std::string& localFile, const std::string& versionId)
{
    return started([&] {
        auto file = std::make_shared<detail::NewFile>(localFile);
        auto request = requestFor<tarn::FileDownload>(source);
        request->versionId = versionId;
        request->content =
            std::make_shared<FileSink>(file->descriptor(), FileSink::Options{.keepHoles = true});
        return ownHost->fileTransfer()->downloadFile(std::move(request)) |
               andThen([file](auto) { file->keep(); }) | finally([file] { file->discard(); });
    });
}

Future<Version> TarnAsync::write(const Place& target, std::string_view content, IfThere ifThere)
{
    using Publisher = reactive_streams::OneShotPublisher<common::DataBuffer>;
    return started([&] {
        auto bytes = std::make_shared<Publisher>(common::DataBuffer(content));
        return upload(*ownHost, target, std::move(bytes), content.size(), ifThere);
    });
}

Future<std::string> TarnAsync::read(const Place& source, const std::string& versionId)
{
    return started([&] {
        auto request = requestFor<tarn::FileRead>(source);
        request->versionId = versionId;
        return ownHost->fileAccess()->readFile(std::move(request)) |
               andThen([](auto response) { return std::string(response->content.bytes()); });
    });
}

Future<void> TarnAsync::remove(const Place& file)
{
    return started(
        [&] { return done(ownHost->fileAccess()->deleteFile(requestFor<tarn::FileDelete>(file))); });
}

Future<void> TarnAsync::move(const Place& from, const Place& to, bool overwrite)
{
    return started([&] {
        auto request = requestFor<tarn::Move>(from);
        request->targetPath = pathOf(to);
        request->targetBucket = wide(to.owner);
        request->moveTargetOverwrite = overwrite;
        return done(ownHost->fileAccess()->move(std::move(request)));
    });
}

Future<Entry> TarnAsync::stat(const Place& item)
{
    return started([&] {
        return ownHost->fileAccess()->readFileAttributes(requestFor<tarn::FileAttributesRead>(item)) |
               andThen([](auto response) {
                   auto entry = entryOf(response->attributes);
                   entry.isFolder = response->attributes.type == "FOLDER";
                   return entry;
               });
    });
}

Future<void> TarnAsync::makeFolder(const Place& folder)
{
    return started(
        [&] { return done(ownHost->fileAccess()->createFolder(requestFor<tarn::FolderCreate>(folder))); });
}

Future<std::vector<Entry>> TarnAsync::list(const Place& folder)
{
    return started([&] {
        return ownHost->fileAccess()->listFolder(requestFor<tarn::FolderList>(folder)) |
               andThen([](auto response) {
                   std::vector<Entry> entries;
                   entries.reserve(response->folders.size() + response->files.size());
                   for (const auto& each : response->folders)
                       entries.push_back(entryOf(each));
                   for (const auto& each : response->files)
                       entries.push_back(entryOf(each));
                   return entries;
               });
    });
}

Future<void> TarnAsync::removeFolder(const Place& folder, bool recursive)
{
    return started([&] {
        auto request = requestFor<tarn::FolderDelete>(folder);
        request->forceRecursive = recursive;
        return done(ownHost->fileAccess()->deleteFolder(std::move(request)));
    });
}

Future<std::vector<SharedEntry>> TarnAsync::shared()
{
    return ownHost->fileAccess()->listSharedContent(std::make_unique<tarn::SharedContentList>()) |
           andThen([](auto response) {
               std::vector<SharedEntry> entries;
               const auto add = [&](const auto& each) {
                   entries.push_back({{narrow(each.path), narrow(each.bucket)}, entryOf(each)});
               };
               for (const auto& user : response->sharedContent) {
                   for (const auto& each : user.sharedFolders)
                       add(each);
                   for (const auto& each : user.sharedFiles)
                       add(each);
               }
               return entries;
           });
}

Future<std::string> TarnAsync::link(const Place& item)
{
    return started([&] {
        return ownHost->fileAccess()->getPublicAccessUrl(requestFor<tarn::PublicAccessUrlGet>(item)) |
               andThen([](auto response) { return narrow(response->url); });
    });
}

Future<std::string> TarnAsync::linkUntil(const Place& item, std::int64_t expires)
{
    return started([&] {
        auto request = requestFor<tarn::PublicLinkCreate>(item);
        request->expires = static_cast<std::uint64_t>(expires);
        return ownHost->publicLinks()->createLink(std::move(request)) |
               andThen([](auto response) { return narrow(response->url); });
    });
}

Future<std::vector<Link>> TarnAsync::links()
{
    return ownHost->publicLinks()->listLinks(std::make_unique<tarn::PublicLinkList>()) |
           andThen([](auto response) {
               std::vector<Link> links;
               for (const auto& each : response->links)
                   links.push_back({each.linkId,
                                    narrow(each.url),
                                    {narrow(each.path), narrow(each.bucket)},
                                    timeOf(each.expires),
                                    each.type == "FOLDER"});
               return links;
           });
}

Future<void> TarnAsync::revokeLink(const std::string& linkId)
{
    auto request = std::make_unique<tarn::PublicLinkRevoke>();
    request->linkId = linkId;
    return done(ownHost->publicLinks()->revokeLink(std::move(request)));
}

Future<std::string> TarnAsync::grant(const Place& item, const std::string& user, bool pending)
{
    return started([&] {
        auto request = requestFor<tarn::PermissionGrant>(item);
        request->subject = wide(user);
        request->allowNonExistingUser = pending;
        return ownHost->accessControl()->grantPermission(std::move(request)) |
               andThen([](auto response) { return response->permissionId; });
    });
}

Future<void> TarnAsync::revoke(const std::string& grantId)
{
    auto request = std::make_unique<tarn::PermissionRevoke>();
    request->permissionId = grantId;
    return done(ownHost->accessControl()->revokePermission(std::move(request)));
}

Future<std::vector<Grant>> TarnAsync::grants(const Place& item)
{
    return started([&] {
        auto request = item.path.empty() ? std::make_unique<tarn::PermissionList>()
                                         : requestFor<tarn::PermissionList>(item);
        return ownHost->accessControl()->listPermissions(std::move(request)) | andThen([](auto response) {
                   std::vector<Grant> grants;
                   for (const auto& each : response->permissions)
                       grants.push_back({each.permissionId,
                                         {narrow(each.path), narrow(each.bucket)},
                                         narrow(each.subjectName),
                                         each.status == "PENDING"});
                   return grants;
               });
    });
}

Future<std::vector<Version>> TarnAsync::versions(const std::string& path)
{
    return started([&] {
        return ownHost->versioning()->listVersions(requestFor<tarn::VersionList>(path)) |
               andThen([](auto response) {
                   std::vector<Version> versions;
                   for (const auto& each : response->versions)
                       versions.push_back({each.versionLabel, each.versionId, timeOf(each.created)});
                   return versions;
               });
    });
}

Future<Version> TarnAsync::restore(const std::string& path, std::int64_t versionLabel, bool asNewVersion)
{
    return started([&] {
        auto request = requestFor<tarn::VersionRestore>(path);
        request->versionLabel = versionLabel;
        request->createNewVersion = asNewVersion;
        return ownHost->versioning()->restoreVersion(std::move(request)) | andThen([](auto response) {
                   return Version{response->versionLabel, response->versionId, {}};
               });
    });
}

} // namespace connector::host
