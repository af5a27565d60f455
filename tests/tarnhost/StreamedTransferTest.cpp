// Contents on their way: what waits for whom, who hears of an end, and whether all of it is the truth.
#include "Bounded.h"
#include "support/TarndProcess.h"
#include "tarn/session/SessionMessages.h"
#include "tarn/transfer/Sha256.h"
#include "tarnhost/FileSink.h"
#include "tarnhost/FileSource.h"
#include "tarnhost/TarnHost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace connector::host::test {
namespace {

using namespace tarn;

struct TemporaryFile {
    std::FILE* file = std::tmpfile();

    ~TemporaryFile() { std::fclose(file); }

    int descriptor() const { return fileno(file); }

    std::string content() const
    {
        std::string bytes(static_cast<std::size_t>(lseek(descriptor(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(descriptor(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        return bytes;
    }
};

TEST(FileTransfer, BringsAFileThereAndBackThroughTheRealService)
{
    tarnd::test::TarndProcess service;
    const auto token = service.addUser("alice");
    service.start();
    TarnHost host({.endpoint = service.url(), .threads = 1});
    auto login = std::make_unique<Login>();
    login->user = u"alice";
    login->authenticationToken = token;
    bounded(host.session()->login(std::move(login)));

    TemporaryFile local;
    std::string content(3'000'000, '\0');
    content.replace(1'000'000, 5, "hello");
    ASSERT_EQ(pwrite(local.descriptor(), content.data(), content.size(), 0), 3'000'000);
    auto source = std::make_shared<FileSource>(local.descriptor());
    auto upload = std::make_unique<FileUpload>();
    upload->path = u"/big";
    upload->content = source;
    upload->size = source->size();
    const auto stored = bounded(host.fileTransfer()->uploadFile(std::move(upload)));
    EXPECT_EQ(stored->bytes, content.size());
    EXPECT_EQ(stored->versionLabel, 1);
    EXPECT_TRUE(stored->verified);

    TemporaryFile copy;
    auto download = std::make_unique<FileDownload>();
    download->path = u"/big";
    download->content = std::make_shared<FileSink>(copy.descriptor(), FileSink::Options{.keepHoles = true});
    const auto brought = bounded(host.fileTransfer()->downloadFile(std::move(download)));
    EXPECT_EQ(brought->bytes, content.size());
    EXPECT_EQ(brought->totalSize, content.size());
    EXPECT_TRUE(brought->verified);
    EXPECT_EQ(brought->versionId, stored->versionId);
    EXPECT_EQ(copy.content(), content);
}

} // namespace
} // namespace connector::host::test
