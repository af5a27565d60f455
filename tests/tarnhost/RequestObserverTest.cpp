// Observers hear everything that helps to find a fault, and no secret; what they do wrong disturbs nobody.
#include "Bounded.h"
#include "support/ScriptedHttpServer.h"
#include "tarn/fileaccess/FileHandleMessages.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarnhost/CountingObserver.h"
#include "tarnhost/LogObserver.h"
#include "tarnhost/RecordingObserver.h"
#include "tarnhost/TarnHost.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace connector::host::test {
namespace {

using namespace tarn;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

TEST(RequestObserver, HearsOfEveryTryAndOfNoSecret)
{
    ScriptedHttpServer server([](auto& connection) {
        while (connection.readRequest())
            if (connection.number() == 0)
                return;
            else
                connection.send(ScriptedHttpServer::reply("<R/>"));
    });
    std::mutex mutex;
    std::vector<std::string> lines;
    const auto log = std::make_shared<LogObserver>(
        [&](const std::string& line) {
            std::lock_guard lock(mutex);
            lines.push_back(line);
            throw std::runtime_error("The disk is full.");
        },
        LogObserver::Detail::tries);
    const auto counts = std::make_shared<CountingObserver>();
    const auto file = testing::TempDir() + "recording-" + std::to_string(::getpid());
    auto recorder = std::make_shared<RecordingObserver>(
        RecordingObserver::Options{.file = file, .most = 2, .failsFrom = 200});
    auto host = std::make_optional<TarnHost>(
        TarnHost::Options{.endpoint = server.url(),
                          .http = {.retries = {.most = 1, .firstPause = std::chrono::milliseconds(2)},
                                   .observers = {log, counts, recorder}}});
    host->session()->setSessionId("secret-session");
    auto read = std::make_unique<FileRead>();
    read->path = u"/a b";
    read->bucket = u"query";
    read->versionId = "secret-version";
    EXPECT_EQ(
        bounded(host->fileAccess()->readFile(with({.tag = "backup"}, std::move(read))))->content.bytes(),
        "<R/>");
    auto close = std::make_unique<FileHandleClose>();
    close->handleId = "secret-handle";
    bounded(host->fileAccess()->closeFileHandle(std::move(close)));
    bounded(host->session()->ping(nullptr));
    static_cast<void>(makeExceptionalFuture<int>(std::invalid_argument("secret-sentence")));
    host.reset();

    const std::string times =
        ".*; waiting .* ms, connecting .* ms, securing .* ms, answering .* ms, receiving .* ms";
    std::lock_guard lock(mutex);
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_THAT(lines[0], MatchesRegex("#[0-9]+ try 1: Could not complete the exchange" + times +
                                       "; again after .* ms"));
    EXPECT_THAT(lines[1], MatchesRegex("#[0-9]+ try 2: 200, 0 B sent, 4 B received" + times));
    EXPECT_THAT(lines[2],
                MatchesRegex("#[0-9]+ GET files /service/v1/files/a%20b \\[backup\\]: 200, 0 B sent, "
                             "4 B received, 2 tries, .* ms"));
    EXPECT_THAT(lines[4], MatchesRegex("#[0-9]+ DELETE filehandle /service/v1/filehandle/…: 200, .*"));
    EXPECT_EQ(lines[7], "A failure that nobody looked at: std::invalid_argument");
    for (const auto& line : lines)
        EXPECT_THAT(line, Not(ContainsRegex("secret|query")));

    // Of the two requests that are remembered, one came after the file was first written.
    recorder.reset();
    std::stringstream recording;
    recording << std::ifstream(file).rdbuf();
    std::remove(file.c_str());
    EXPECT_THAT(recording.str(),
                AllOf(HasSubstr(R"("because": "A failure that nobody looked at: std::inval)"),
                      HasSubstr(R"("path": "/service/v1/filehandle/…")"),
                      HasSubstr(R"("path": "/service/v1/ping")"), Not(ContainsRegex("secret|backup"))));

    const auto page = counts->text();
    EXPECT_THAT(page, HasSubstr("tarn_client_requests_in_flight 0\n"));
    EXPECT_THAT(page, HasSubstr("tarn_client_requests_total{operation=\"GET files\",status=\"200\"} 1\n"));
    EXPECT_THAT(page, HasSubstr("tarn_client_tries_total{operation=\"GET files\"} 2\n"));
    EXPECT_THAT(page, HasSubstr("duration_seconds_bucket{operation=\"GET files\",le=\"600\"} 1\n"));
}

TEST(RecordingObserver, PutsNoFileInThePlaceOfALinkOrAPipe)
{
    const auto folder =
        std::filesystem::path(testing::TempDir()) / ("recorded-" + std::to_string(::getpid()));
    std::filesystem::create_directory(folder);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::ofstream(folder / "file") << "old";
    std::filesystem::create_symlink("file", folder / "link");
    for (const auto* name : {"pipe", "link"}) {
        RecordingObserver recorder({.file = folder / name});
        recorder.unobserved(std::make_exception_ptr(std::runtime_error("It failed.")));
    }
    EXPECT_TRUE(std::filesystem::is_fifo(folder / "pipe"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_GT(std::filesystem::file_size(folder / "file"), 3u);
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace connector::host::test
