// The content of an upload from files and pipes: what throws while it is brought.
#include "Bounded.h"

#include "tarn/foundation/CallbackSubscriber.h"
#include "tarn/foundation/DataBuffer.h"
#include "tarnhost/FileSource.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace connector::host::test {
namespace {

namespace fs = std::filesystem;
using common::DataBuffer;
using Callback = reactive_streams::CallbackSubscriber<DataBuffer>;

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

} // namespace
} // namespace connector::host::test
