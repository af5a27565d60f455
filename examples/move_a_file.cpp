// Stores a file of any size, or brings it back, in constant memory:
//
//     TARN_ENDPOINT=http://127.0.0.1:7070 TARN_TOKEN=... move_a_file alice put big.iso /big.iso
//     TARN_ENDPOINT=http://127.0.0.1:7070 TARN_TOKEN=... move_a_file alice get copy.iso /big.iso
#include "tarn/foundation/platform/TextConversion.h"
#include "tarn/session/SessionMessages.h"
#include "tarn/transfer/FileTransferMessages.h"
#include "tarnhost/FileSink.h"
#include "tarnhost/FileSource.h"
#include "tarnhost/TarnHost.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string_view>

using namespace connector::tarn;
namespace host = connector::host;

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

void put(host::TarnHost& tarnHost, const char* file, const char* path)
{
    auto source = host::FileSource::open(file);
    auto upload = std::make_unique<FileUpload>();
    upload->path = text(path);
    upload->size = source->size();
    upload->content = std::move(source);
    tarnHost.fileTransfer()->uploadFile(std::move(upload)).get();
}

void get(host::TarnHost& tarnHost, const char* file, const char* path)
{
    std::FILE* target = std::fopen(file, "wxe");
    if (!target) throw std::runtime_error("The file cannot be made.");
    auto download = std::make_unique<FileDownload>();
    download->path = text(path);
    download->content = std::make_shared<host::FileSink>(fileno(target));
    std::fclose(target); // the sink has a duplicate
    tarnHost.fileTransfer()->downloadFile(std::move(download)).get();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::cerr << "usage: TARN_ENDPOINT=URL TARN_TOKEN=TOKEN move_a_file USER put|get FILE PATH\n";
        return 2;
    }
    try {
        host::TarnHost tarnHost({.endpoint = environment("TARN_ENDPOINT")});
        auto login = std::make_unique<Login>();
        login->user = text(argv[1]);
        login->authenticationToken = environment("TARN_TOKEN");
        tarnHost.session()->login(std::move(login)).get();
        (std::string_view(argv[2]) == "get" ? get : put)(tarnHost, argv[3], argv[4]);
    } catch (const std::exception& error) {
        std::cerr << "move_a_file: " << error.what() << '\n';
        return 1;
    }
}
