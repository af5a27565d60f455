// What a service names must stay inside the folder that the user chose, and no half file may be seen.
#include "cli/transfer/DownloadFolder.h"
#include "cli/terminal/Failure.h"
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

#include <array>
#include <unistd.h>

namespace tarncli {
namespace {

namespace fs = std::filesystem;

class DownloadFolderTest : public testing::Test {
protected:
    DownloadFolderTest()
    {
        fs::create_directories(base / "in");
        fs::create_directories(base / "outside");
        folder = DownloadFolder::open(base / "in");
    }

    static void store(const DownloadFolder& where, const std::string& name, const std::string& content,
                      Overwrite overwrite)
    {
        const auto file = where.receive(name, overwrite, Unfinished::remove, countFromZero());
        file->subscriber()->onNext(connector::common::DataBuffer(content));
        file->commit(overwrite, 0);
    }

    std::ptrdiff_t entries(const fs::path& below) const
    {
        return std::distance(fs::directory_iterator(base / below), {});
    }

    test::Shell shell;
    const fs::path base = shell.work();
    std::shared_ptr<const DownloadFolder> folder;
};

TEST_F(DownloadFolderTest, RefusesNamesThatLeaveIt)
{
    for (const auto& name : {std::string(".."), std::string("."), std::string(), std::string("../outside/x"),
                             std::string("/etc/x"), std::string("a/b"), std::string("a\0b", 3)}) {
        EXPECT_THROW(store(*folder, name, "x", Overwrite::replace), Failure);
        EXPECT_THROW(folder->makeChild(name), Failure);
    }
    EXPECT_EQ(entries("in"), 0);
    EXPECT_EQ(entries("outside"), 0);
}

TEST_F(DownloadFolderTest, FollowsNoLinkBelowIt)
{
    fs::create_directory_symlink(base / "outside", base / "in/link");
    EXPECT_THROW(folder->makeChild("link"), Failure);
    const auto child = folder->makeChild("real");
    fs::remove(base / "in/real");
    fs::create_directory_symlink(base / "outside", base / "in/real"); // swapped while files arrive
    EXPECT_THROW(store(*child, "x", "x", Overwrite::replace), Failure);
    EXPECT_EQ(entries("outside"), 0);
}

TEST_F(DownloadFolderTest, ReplacesALinkInsteadOfWritingThroughIt)
{
    shell.write("outside/precious", "old");
    fs::create_symlink(base / "outside/precious", base / "in/x");
    EXPECT_THROW(store(*folder, "x", "new", Overwrite::refuse), Failure);
    store(*folder, "x", "new", Overwrite::replace);
    EXPECT_EQ(shell.read("outside/precious"), "old");
    EXPECT_EQ(shell.read("in/x"), "new");
}

TEST_F(DownloadFolderTest, LeavesNothingWhereItCannotFinish)
{
    fs::create_directory(base / "in/taken");
    EXPECT_THROW(store(*folder, "taken", "x", Overwrite::replace), Failure);
    store(*folder, "file", "old", Overwrite::refuse);
    EXPECT_THROW(store(*folder, "file", "new", Overwrite::refuse), Failure);
    EXPECT_EQ(shell.read("in/file"), "old");
    EXPECT_EQ(shell.run("mkfifo in/pipe").exitCode, 0);
    EXPECT_THROW(store(*folder, "pipe", "x", Overwrite::replace), Failure);
    EXPECT_TRUE(fs::is_fifo(base / "in/pipe"));
    EXPECT_EQ(entries("in"), 3);
}

/// In a container each command has the same number.
TEST_F(DownloadFolderTest, WhatAProcessOfTheSameNumberLeftIsInNobodysWay)
{
    std::array<char, 65> machine{};
    ASSERT_EQ(::gethostname(machine.data(), machine.size() - 1), 0);
    for (int i = 1; i < 50; ++i)
        shell.write("in/.tarn-" + std::string(machine.data()) + "-" + std::to_string(getpid()) + "-" +
                        std::to_string(i) + ".part",
                    "old");
    const auto file = folder->receive("x", Overwrite::refuse, Unfinished::remove, countFromZero());
    file->subscriber()->onNext(connector::common::DataBuffer("new"));
    DownloadFolder::open(base / "in");
    EXPECT_EQ(entries("in"), 1);
    file->commit(Overwrite::refuse, 0);
    EXPECT_EQ(shell.read("in/x"), "new");
}

TEST_F(DownloadFolderTest, GivesAFileInThePlaceOfItsPartNoOtherName)
{
    const auto file = folder->receive("x", Overwrite::refuse, Unfinished::keep, countFromZero());
    file->subscriber()->onNext(connector::common::DataBuffer("new"));
    fs::remove(base / "in/.x.tarn-part");
    shell.write("in/.x.tarn-part", "other");
    EXPECT_THROW(file->commit(Overwrite::refuse, 0), Failure);
    EXPECT_FALSE(fs::exists(base / "in/x"));
}

} // namespace
} // namespace tarncli
