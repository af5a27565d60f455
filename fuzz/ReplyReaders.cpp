// What any reply can do to the library: a first byte that picks the operation, a second that picks the status,
// then the body. Whatever it is, the operation is settled, and only status 200 is a success.
#include "fuzz/Fuzz.h"
#include "support/FakeTransport.h"
#include "tarn/accesscontrol/AccessControlClient.h"
#include "tarn/accesscontrol/AccessControlClientServiceProvider.h"
#include "tarn/fileaccess/FileAccessClient.h"
#include "tarn/fileaccess/FileAccessClientServiceProvider.h"
#include "tarn/session/TarnSessionClient.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"
#include "tarn/versioning/VersioningClient.h"
#include "tarn/versioning/VersioningClientServiceProvider.h"

using namespace connector::tarn;

namespace {

struct Clients {
    std::shared_ptr<tarntest::FakeTransport> transport = std::make_shared<tarntest::FakeTransport>();
    std::shared_ptr<TarnSessionClient> session;
    std::shared_ptr<FileAccessClient> files;
    std::shared_ptr<AccessControlClient> access;
    std::shared_ptr<VersioningClient> versions;

    Clients()
    {
        serve<TarnSessionClientServiceProvider>("session");
        serve<FileAccessClientServiceProvider>("files");
        serve<AccessControlClientServiceProvider>("access");
        serve<VersioningClientServiceProvider>("versions");
        session = std::make_shared<TarnSessionClient>(transport, connector::Address("session"), "app", "fuzz",
                                                      "en_US");
        files = std::make_shared<FileAccessClient>(session, transport, connector::Address("files"));
        access = std::make_shared<AccessControlClient>(session, transport, connector::Address("access"));
        versions = std::make_shared<VersioningClient>(session, transport, connector::Address("versions"));
    }

    template <class Provider>
    void serve(const char* address)
    {
        transport->serve(address, std::make_shared<Provider>(nullptr, "http://host"));
    }
};

template <class Response>
bool succeeds(connector::Future<Response> future)
{
    tarnfuzz::require(future.isReady(), "a reply settles its operation");
    try {
        future.get();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

/// Calls one operation, lets `answer` answer it, and tells whether it succeeded.
using Operation = bool (*)(Clients& clients, const std::function<void()>& answer);

template <auto client, auto method, class Request>
bool run(Clients& clients, const std::function<void()>& answer)
{
    auto request = std::make_unique<Request>();
    if constexpr (requires { request->handleId; }) request->handleId = "H"; // nothing is sent without
    auto future = (*(clients.*client).*method)(std::move(request));
    answer();
    return succeeds(std::move(future));
}

constexpr auto files = &Clients::files;
using Files = FileAccessClient;

// readFile stands last: it takes any body.
constexpr Operation operations[] = {
    run<&Clients::session, &TarnSessionClient::login, Login>,
    run<&Clients::session, &TarnSessionClient::logout, Logout>,
    run<&Clients::session, &TarnSessionClient::ping, Ping>,
    run<files, &Files::createFile, FileCreate>,
    run<files, &Files::updateFile, FileUpdate>,
    run<files, &Files::deleteFile, FileDelete>,
    run<files, &Files::createReadOnlyFileHandle, FileHandleReadOnlyCreate>,
    run<files, &Files::createReadWriteFileHandle, FileHandleReadWriteCreate>,
    run<files, &Files::closeFileHandle, FileHandleClose>,
    run<files, &Files::move, Move>,
    run<files, &Files::readFileAttributes, FileAttributesRead>,
    run<files, &Files::createFolder, FolderCreate>,
    run<files, &Files::listFolder, FolderList>,
    run<files, &Files::deleteFolder, FolderDelete>,
    run<files, &Files::listSharedContent, SharedContentList>,
    run<files, &Files::getPublicAccessUrl, PublicAccessUrlGet>,
    run<&Clients::access, &AccessControlClient::grantPermission, PermissionGrant>,
    run<&Clients::access, &AccessControlClient::revokePermission, PermissionRevoke>,
    run<&Clients::access, &AccessControlClient::listPermissions, PermissionList>,
    run<&Clients::versions, &VersioningClient::restoreVersion, VersionRestore>,
    run<&Clients::versions, &VersioningClient::listVersions, VersionList>,
    run<files, &Files::readFile, FileRead>,
};
constexpr std::uint16_t statuses[] = {200, 404, 403, 201, 500};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) return 0;
    // Letters from 'a' on, so that seeds can be read and written by hand.
    const auto operation = operations[(data[0] - 'a') % std::size(operations)];
    const auto status = statuses[(data[1] - 'a') % std::size(statuses)];
    Clients clients;
    const auto answer = [&] {
        tarnfuzz::require(clients.transport->count() == 1, "one operation is one request");
        clients.transport->answer(status, tarnfuzz::textOf(data + 2, size - 2));
    };
    const bool succeeded = operation(clients, answer);
    tarnfuzz::require(!succeeded || status == 200, "only status 200 is a success");
    return 0;
}
