// Logs in, stores a file and reads it back:
//
//     TARN_ENDPOINT=http://127.0.0.1:7070 TARN_TOKEN=... store_a_file alice /hello.txt
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/foundation/platform/TextConversion.h"
#include "tarn/session/SessionMessages.h"
#include "tarnhost/TarnHost.h"

#include <cstdlib>
#include <iostream>

using namespace connector::tarn;

namespace {

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::u16string text(const char* utf8)
{
    return fl::i18n::to_ustring(utf8, fl::i18n::codecvt_string_to_ustring("UTF-8"));
}

void storeAndReadBack(const char* user, const char* path)
{
    connector::host::TarnHost host({.endpoint = environment("TARN_ENDPOINT")});

    auto login = std::make_unique<Login>();
    login->user = text(user);
    login->authenticationToken = environment("TARN_TOKEN");
    host.session()->login(std::move(login)).get();

    auto create = std::make_unique<FileCreate>();
    create->path = text(path);
    create->content = connector::common::DataBuffer("Hello, Tarn!\n");
    create->contentType = "text/plain";
    host.fileAccess()->createFile(std::move(create)).get();

    auto read = std::make_unique<FileRead>();
    read->path = text(path);
    std::cout << host.fileAccess()->readFile(std::move(read)).get()->content.bytes();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: TARN_ENDPOINT=URL TARN_TOKEN=TOKEN store_a_file USER PATH\n";
        return 2;
    }
    try {
        storeAndReadBack(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::cerr << "store_a_file: " << error.what() << '\n';
        return 1;
    }
}
