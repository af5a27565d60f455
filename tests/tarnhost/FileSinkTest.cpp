// A file that is written behind the back of whoever delivers: what fails there, and what is there at the end.
#include "tarnhost/FileSink.h"

#include "support/ManualPublisher.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

namespace connector::host::test {
namespace {

using common::DataBuffer;

TEST(FileSink, FailsLaterWithWhatCouldNotBeWritten)
{
    const std::function<void(FileSink&)> ends[] = {
        [](FileSink& sink) { sink.onComplete(); },
        [](FileSink& sink) { sink.onNext(DataBuffer("y")); },
        [](FileSink& sink) { sink.onError(nullptr); },
    };
    for (const auto& end : ends) {
        const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
        FileSink sink(file, {.keepHoles = true});
        close(file);
        auto completion = sink.completion();
        sink.onNext(DataBuffer(std::string(4096, '\0'))); // a hole, for which nothing is written
        sink.onNext(DataBuffer("x"));
        try {
            end(sink);
            ADD_FAILURE() << "was told that all is written";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EBADF);
        }
        EXPECT_TRUE(completion.isReady() && !completion.get());
    }
}

TEST(FileSink, HasWrittenAllBeforeItReturnsFromTheEndOrTheError)
{
    const std::string item(16'000'000, 'x'); // takes a while
    const std::function<void(FileSink&)> ends[] = {
        [](FileSink& sink) { sink.onComplete(); },
        [](FileSink& sink) { sink.onError(std::make_exception_ptr(std::runtime_error("cut"))); },
    };
    for (const auto& end : ends) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
        FileSink sink(fileno(file.get()));
        for (int i = 0; i < 3; ++i)
            sink.onNext(DataBuffer(item));
        end(sink);
        EXPECT_EQ(lseek(fileno(file.get()), 0, SEEK_CUR), 48'000'000);
    }
}

TEST(FileSink, RefusesADownloadWhenItWasCancelledBeforeAndASecondOne)
{
    tarntest::ManualPublisher publisher;
    const auto sink = std::make_shared<FileSink>(STDOUT_FILENO);
    sink->cancel();
    publisher.subscribe(sink);
    EXPECT_TRUE(publisher.link->cancelled);
    EXPECT_EQ(publisher.link->requested, 0u);
    EXPECT_THROW(publisher.subscribe(sink), std::invalid_argument);
}

TEST(FileSink, WaitsForRoomInAPipeThatDoesNot)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    std::uint64_t seen = 0;
    std::thread reader([&] {
        char buffer[4096];
        pollfd watched{ends[0], POLLIN, 0};
        while (poll(&watched, 1, 60'000) > 0) {
            const auto count = read(ends[0], buffer, sizeof buffer);
            if (count <= 0) break;
            seen += static_cast<std::uint64_t>(count);
        }
    });
    {
        FileSink sink(ends[1]);
        close(ends[1]);
        EXPECT_NO_THROW(sink.onNext(DataBuffer(std::string(1'000'000, 'x'))));
    }
    reader.join();
    close(ends[0]);
    EXPECT_EQ(seen, 1'000'000u);
}

TEST(FileSink, LeavesNoZerosOutWhereAllIsAppended)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
    const int descriptor = fileno(file.get());
    ASSERT_EQ(write(descriptor, "old", 3), 3);
    ASSERT_EQ(fcntl(descriptor, F_SETFL, O_APPEND), 0);
    const std::string zeros(4096, '\0');
    FileSink sink(descriptor, {.keepHoles = true});
    sink.onNext(DataBuffer(zeros + "new" + zeros));
    sink.onComplete();
    std::string content(9000, '?');
    content.resize(static_cast<std::size_t>(pread(descriptor, content.data(), content.size(), 0)));
    EXPECT_TRUE(content == "old" + zeros + "new" + zeros) << "the file has " << content.size() << " bytes";
}

} // namespace
} // namespace connector::host::test
