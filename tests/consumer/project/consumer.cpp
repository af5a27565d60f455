// An application and its test in one: a file that is stored, and a reply that is lost on purpose.
#include <tarn/fileaccess/FileMessages.h>
#include <tarn/session/SessionMessages.h>
#include <tarnhost/TarnHost.h>
#include <tarnhost/TransportError.h>
#include <tarntesting/TestService.h>

#include <iostream>

using namespace connector::tarn;

int main()
{
    tarntesting::TestService service;
    connector::host::TarnHost host({.endpoint = service.url()});
    auto login = std::make_unique<Login>();
    login->user = u"alice";
    login->authenticationToken = service.addUser("alice");
    host.session()->login(std::move(login)).get();

    service.script("createFile #1 lose");
    auto file = std::make_unique<FileCreate>();
    file->path = u"/hello.txt";
    file->content = connector::common::DataBuffer("Hello!");
    try {
        host.fileAccess()->createFile(std::move(file)).get();
    } catch (const connector::host::TransportError& error) {
        std::cout << error.what() << '\n';
        return error.mayHaveHappened() && service.unfired().empty() ? 0 : 1;
    }
    return 1;
}
