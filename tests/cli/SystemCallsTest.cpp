// What cannot be seen from outside: whether a file was made to last before it was shown, also where the file system can
// do little, and whether it changed while it was read. These calls come by here on their way to the kernel.
#include "cli/machine/PrivateFile.h"
#include "cli/terminal/Failure.h"
#include "cli/transfer/DownloadFolder.h"
#include "cli/transfer/LocalContent.h"
#include "tarnhost/FileSink.h"
#include "tests/cli/Shell.h"

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <utility>

namespace {

std::vector<std::string> steps;       ///< of the test's own thread, as all that follows
std::function<void()> afterLookingAt; ///< called once
bool isPoor = false;                  ///< the file system: without locks, and folders cannot be synced

} // namespace

extern "C" int fstat(int fd, struct stat* status) noexcept
{
    const auto result = syscall(SYS_newfstatat, fd, "", status, AT_EMPTY_PATH);
    if (afterLookingAt) std::exchange(afterLookingAt, nullptr)();
    return static_cast<int>(result);
}

extern "C" int fsync(int fd)
{
    struct stat status {};

    fstat(fd, &status);
    steps.emplace_back(S_ISDIR(status.st_mode) ? "sync folder" : "sync file");
    if (isPoor && S_ISDIR(status.st_mode)) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fsync, fd));
}

extern "C" int flock(int fd, int operation) noexcept
{
    if (isPoor) errno = ENOLCK;
    return isPoor ? -1 : static_cast<int>(syscall(SYS_flock, fd, operation));
}

extern "C" int renameat2(int from, const char* name, int to, const char* newName, unsigned flags) noexcept
{
    steps.emplace_back("rename");
    return static_cast<int>(syscall(SYS_renameat2, from, name, to, newName, flags));
}

extern "C" int rename(const char* name, const char* newName) noexcept
{
    return renameat2(AT_FDCWD, name, AT_FDCWD, newName, 0);
}

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;

TEST(SystemCalls, AFileLastsBeforeItIsShownAndItsNameBeforeItIsTold)
{
    const Shell shell;
    const auto folder = DownloadFolder::open(shell.work());
    const auto receive = [&](Overwrite overwrite, Unfinished unfinished) {
        const auto file = folder->receive("new", overwrite, unfinished, countFromZero());
        file->subscriber()->onNext(connector::common::DataBuffer("x"));
        file->commit(overwrite, 1);
    };
    const std::function<void()> writes[] = {[&] { receive(Overwrite::refuse, Unfinished::remove); },
                                            [&] { receive(Overwrite::replace, Unfinished::keep); },
                                            [&] { writePrivateFile(shell.work() / "private", "x"); }};
    for (const bool poor : {false, true})
        for (const auto& write : writes) {
            fs::remove(shell.work() / "new");
            steps.clear();
            isPoor = poor;
            EXPECT_NO_THROW(write());
            isPoor = false;
            EXPECT_THAT(steps, testing::ElementsAre("sync file", "rename", "sync folder"));
        }
}

/// To its last byte.
bool isSent(const LocalContent& content)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> target(std::tmpfile(), &std::fclose);
    const auto sink = std::make_shared<connector::host::FileSink>(fileno(target.get()));
    const auto publisher = content.publisher(countFromZero());
    publisher->subscribe(sink);
    const auto sent = lseek(fileno(target.get()), 0, SEEK_END);
    return sink->completion().get() && sent == static_cast<off_t>(content.size().value());
}

TEST(SystemCalls, AFileThatChangesWhileItIsReadIsNotStored)
{
    const Shell shell;
    const auto file = shell.work() / "file";
    for (const auto* changed : {"rewritten", "longer than it was", "short"}) {
        shell.write("file", "undefined");
        const timespec longAgo[2]{};
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), longAgo, 0), 0); // the clock of files ticks slowly
        afterLookingAt = [&] { shell.write("file", changed); };
        EXPECT_FALSE(isSent(LocalContent::ofFile(file, Symlinks::follow))) << changed;
    }
    EXPECT_TRUE(isSent(LocalContent::ofFile(file, Symlinks::follow)));
}

} // namespace
} // namespace tarncli::test
