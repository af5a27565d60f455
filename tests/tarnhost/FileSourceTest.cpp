// The content of an upload from files and pipes: what throws while it is brought, and what is no content.
#include "Bounded.h"

#include "tarn/foundation/CallbackSubscriber.h"
#include "tarn/foundation/DataBuffer.h"
#include "tarnhost/FileSource.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace connector::host::test {
namespace {

namespace fs = std::filesystem;
using common::DataBuffer;
using Callback = reactive_streams::CallbackSubscriber<DataBuffer>;
using namespace std::string_literals;

class FileSourceTest : public testing::Test {
protected:
    FileSourceTest() { fs::create_directory(folder); }

    ~FileSourceTest() override { fs::remove_all(folder); }

    const fs::path folder = fs::temp_directory_path() / ("tarn-source-" + std::to_string(::getpid()));
};

struct ThrowsAtTheEnd : Callback {
    using Callback::Callback;

    void onComplete() override { throw std::runtime_error("mine"); }
};

TEST_F(FileSourceTest, TellsASubscriberWhatItHasThrown)
{
    const auto file = folder / "file";
    std::ofstream(file) << "abc";
    for (const bool isPipe : {false, true}) {
        for (const bool atTheEnd : {false, true}) {
            int ends[2];
            ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
            ASSERT_EQ(write(ends[1], "abc", 3), 3);
            close(ends[1]);
            const auto source = isPipe ? std::make_shared<FileSource>(ends[0]) : FileSource::open(file);
            close(ends[0]);
            const auto throwing = [](DataBuffer&&) { throw std::runtime_error("mine"); };
            auto subscriber = atTheEnd ? std::make_shared<ThrowsAtTheEnd>([](DataBuffer&&) {})
                                       : std::make_shared<Callback>(throwing);
            auto completion = subscriber->completion();
            EXPECT_NO_THROW(source->subscribe(subscriber));
            EXPECT_EQ(failureOf<std::runtime_error>(std::move(completion)), "mine") << isPipe << atTheEnd;
        }
    }
}

TEST_F(FileSourceTest, RefusesFoldersAndNamesThatEndEarly)
{
    std::ofstream(folder / "file") << "another file";
    for (const auto& [name, error] :
         {std::pair(folder.string(), EISDIR), {(folder / "file\0.new"s).string(), EINVAL}}) {
        try {
            FileSource::open(name);
            ADD_FAILURE() << name << " was opened";
        } catch (const std::system_error& fault) {
            EXPECT_EQ(fault.code().value(), error);
        }
    }
}

TEST_F(FileSourceTest, WaitsForTheFirstWriterOfAPipeElsewhere)
{
    const auto pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const auto source = FileSource::open(pipe); // nobody else could open the other end meanwhile
    std::string content;
    auto subscriber = std::make_shared<Callback>([&](DataBuffer&& item) { content += item.bytes(); });
    auto completion = subscriber->completion();
    source->subscribe(subscriber);
    std::ofstream(pipe) << "abc";
    EXPECT_TRUE(bounded(std::move(completion)));
    EXPECT_EQ(content, "abc");
}

} // namespace
} // namespace connector::host::test
