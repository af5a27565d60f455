// The easy face against the real rules: one day of two people, in both forms, and what goes wrong.
#include "Bounded.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/transfer/FileTransferMessages.h"
#include "tarnhost/FileSink.h"
#include "tarnhost/TarnAsync.h"
#include "tarnhost/TarnHost.h"
#include "tarnhost/TransportError.h"
#include "tarntesting/ScriptedHttpServer.h"
#include "tarntesting/TestService.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <pty.h>
#include <set>
#include <stop_token>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<int> folderFault{0}; ///< of the next folder that is synced

} // namespace

extern "C" __attribute__((visibility("default"))) int fsync(int file)
{
    struct stat about {};

    const bool isFolder = ::fstat(file, &about) == 0 && S_ISDIR(about.st_mode);
    if (const int fault = isFolder ? folderFault.exchange(0) : 0) {
        errno = fault;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fsync, file));
}

namespace connector::host {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TarnTest : public testing::Test {
protected:
    TarnTest() { fs::create_directory(folder); }

    ~TarnTest() override { fs::remove_all(folder); }

    static std::string contentOf(const fs::path& file)
    {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    template <class Step>
    static tarn::ErrorKind kindOf(Step step)
    {
        try {
            step();
        } catch (const tarn::TarnError& error) {
            return error.kind();
        }
        throw std::logic_error("nothing was refused");
    }

    tarntesting::TestService service;
    const std::string token = service.addUser("älice");
    const fs::path folder = fs::temp_directory_path() / ("tarn-easy-" + std::to_string(::getpid()));
    Tarn alice{service.url(), {"älice", token}};
};

TEST_F(TarnTest, DoesADaysWorkOfTwoPeople)
{
    Tarn bob(service.url(), {"bob", service.addUser("bob")});
    alice.ping();
    alice.makeFolder("/phötos");
    EXPECT_EQ(alice.write("/phötos/a", "first", IfThere::fail).label, 1);
    EXPECT_EQ(kindOf([&] { alice.write("/phötos/a", "other", IfThere::fail); }), tarn::ErrorKind::conflict);
    EXPECT_EQ(alice.write("/phötos/a", "second", IfThere::keep).label, 2);
    std::set<std::string> contents;
    for (const auto& version : alice.versions("/phötos/a"))
        contents.insert(alice.read("/phötos/a", version.id));
    EXPECT_THAT(contents, ElementsAre("first", "second"));
    EXPECT_EQ(alice.restore("/phötos/a", 1, true).label, 3);
    alice.move("/phötos/a", "/phötos/b?#");
    EXPECT_EQ(kindOf([&] { alice.read("/phötos/a"); }), tarn::ErrorKind::notFound);
    alice.makeFolder("/phötos/inner");
    const auto entries = alice.list("/phötos");
    ASSERT_THAT(entries, SizeIs(2));
    EXPECT_TRUE(entries[0].name == "inner" && entries[0].isFolder);
    EXPECT_TRUE(entries[1].name == "b?#" && entries[1].size == 5 && entries[1].isWritable);
    EXPECT_LT(std::abs(std::time(nullptr) - entries[1].modified / 1000), 60);
    EXPECT_TRUE(alice.stat("/phötos").isFolder);

    const auto id = alice.grant("/phötos", "bob");
    EXPECT_THAT(alice.grant("/phötos", "nobody yet", true), testing::Not(IsEmpty()));
    EXPECT_THAT(alice.grants(), SizeIs(2));
    ASSERT_THAT(bob.shared(), SizeIs(1));
    EXPECT_EQ(bob.shared()[0].place.owner, "älice");
    EXPECT_THAT(bob.list(bob.shared()[0].place), SizeIs(2));
    EXPECT_EQ(kindOf([&] { bob.makeFolder({"/phötos/mine", "älice"}); }), tarn::ErrorKind::notAllowed);
    alice.revoke(id);
    EXPECT_THAT(bob.shared(), IsEmpty());
    EXPECT_EQ(alice.link("/phötos").rfind(service.url(), 0), 0u);
    const auto ending = alice.linkUntil("/phötos", 4'102'444'800'000);
    ASSERT_EQ(alice.links().size(), 2u);
    const auto last = alice.links().back();
    EXPECT_TRUE(last.url == ending && last.expires == 4'102'444'800'000 && last.place.path == "/phötos");
    alice.revokeLink(last.id);
    EXPECT_EQ(alice.links().size(), 1u);
    EXPECT_EQ(kindOf([&] { alice.removeFolder("/phötos"); }), tarn::ErrorKind::conflict);
    alice.removeFolder("/phötos", true);
    EXPECT_THAT(alice.list("/"), IsEmpty());
    alice.logOut();
    EXPECT_EQ(kindOf([&] { alice.ping(); }), tarn::ErrorKind::notLoggedIn);
    alice.logIn({"älice", token});
    alice.ping();
}

TEST_F(TarnTest, MovesFilesOfThisMachineWholeOrNotAtAll)
{
    const auto local = folder / "local", copy = folder / "copy";
    std::ofstream(local) << std::string(3'000'000, 'x');
    EXPECT_EQ(alice.put("/f", local).label, 1);
    alice.get("/f", copy);
    EXPECT_EQ(contentOf(copy), contentOf(local));
    EXPECT_EQ(alice.async().put("/f", local, IfThere::keep).get().label, 2);

    service.script("readFile #1 cut 1000000");
    auto files =
        alice.async().get("/f", copy).then([&](Future<void>&& failed) { // nothing may go only afterwards
            EXPECT_THROW(failed.get(), TransportError);
            return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
        });
    EXPECT_EQ(files.get(), 2);
    EXPECT_EQ(contentOf(copy), contentOf(local));
    EXPECT_THROW(alice.put("/g", folder / "missing"), std::system_error);
    EXPECT_THROW(alice.get("/f", folder / "no" / "copy"), std::system_error);
    EXPECT_THROW(alice.write("/\xff", "x"), std::invalid_argument);

    service.script("any always wait 10s");
    auto pending = alice.async().list("/");
    alice = Tarn(std::make_shared<TarnHost>(TarnHost::Options{.endpoint = service.url()}));
    EXPECT_THROW(pending.get(), TransportError);
}

/// A file that is fetched may be read by nobody who could not read what it replaces, or what this process makes.
TEST_F(TarnTest, KeepsModesLinksAndDevices)
{
    alice.write("/f", "new");
    const auto mode = [](const fs::path& file) { return fs::status(file).permissions(); };
    const auto secret = folder / "secret", link = folder / "link", made = folder / std::string(250, 'n');
    std::ofstream(secret) << "old";
    fs::permissions(secret, fs::perms(0600));
    fs::create_symlink("secret", link);
    alice.get("/f", link);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(contentOf(secret), "new");
    EXPECT_EQ(mode(secret), fs::perms(0600));

    const auto mask = ::umask(027);
    EXPECT_NO_THROW(alice.get("/f", made));
    ::umask(mask);
    EXPECT_EQ(mode(made), fs::perms(0640));

    const auto early = folder / "early", round = folder / "round";
    fs::create_symlink("later", early);
    alice.get("/f", early);
    EXPECT_TRUE(fs::is_symlink(early));
    EXPECT_EQ(contentOf(folder / "later"), "new");

    const auto pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    fs::create_symlink("round", round);
    for (const auto& taken : {pipe, folder, round, folder / std::string("secret\0.new", 11)})
        EXPECT_THROW(alice.get("/f", taken), std::system_error) << taken;
    EXPECT_TRUE(fs::is_fifo(pipe) && fs::is_symlink(round));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 7);
}

TEST_F(TarnTest, HasAFileOnTheDiskUnderItsNameBeforeItSaysSo)
{
    alice.write("/f", "new");
    for (const auto& [fault, expected] :
         {std::pair{EIO, EIO}, {EINVAL, 0}}) { // EINVAL: the file system cannot
        folderFault = fault;
        int told = 0;
        try {
            alice.get("/f", folder / "f");
        } catch (const std::system_error& error) {
            told = error.code().value();
        }
        EXPECT_EQ(told, expected);
        EXPECT_EQ(folderFault, 0) << "the folder was not synced";
    }
}

/// A pipe or terminal that is full keeps its sink within a signal, where no other signal reaches it.
TEST_F(TarnTest, EndsADownloadThatNobodyReads)
{
    alice.write("/f", std::string(2'000'000, 'x'));
    using Ends = std::function<void(std::stop_source&, FileSink&)>;
    const auto openPipe = [](int* ends) { return ::pipe(ends); };
    const auto openTerminal = [](int* ends) {
        return ::openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr);
    };

    const struct {
        std::function<int(int*)> open;
        std::size_t bytes;
        Ends end;
    } rows[] = {
        {openPipe, 2'000'000, [](auto& stop, auto&) { stop.request_stop(); }},
        {openPipe, 2'000'000, [](auto&, auto& sink) { sink.cancel(); }},
        {openPipe, 2'000'000, [](auto&, auto&) {}}, // but that the host ends
        {openPipe, 100'000, [](auto&, auto&) {}},
        {openTerminal, 100'000, [](auto&, auto&) {}},
    };

    for (const auto& [open, bytes, end] : rows) {
        int pipe[2];
        ASSERT_EQ(open(pipe), 0);
        std::stop_source stop;
        auto sink = std::make_shared<FileSink>(pipe[1]);
        auto download = std::make_unique<tarn::FileDownload>();
        download->path = u"/f";
        download->length = bytes;
        download->content = sink;
        download->stop = stop.get_token();
        auto reader = std::make_unique<Tarn>(service.url(), Tarn::Login{"älice", token});
        auto done = reader->host().fileTransfer()->downloadFile(std::move(download));
        ASSERT_TRUE(test::eventually([&] {
            int waiting = 0;
            return ::ioctl(pipe[0], FIONREAD, &waiting) == 0 && waiting > 4000; // of the 4096 of a terminal
        }));
        end(stop, *sink);
        EXPECT_TRUE(!stop.stop_requested() || done.waitFor(std::chrono::seconds(20)));
        reader.reset();
        EXPECT_ANY_THROW(done.get());
        ::close(pipe[0]);
        ::close(pipe[1]);
    }
}

/// Whatever answers 200 is not yet a service: the login page of a network does, too.
TEST_F(TarnTest, BelievesNobodyWhoDoesNotSayWhatWasDone)
{
    using tarntesting::ScriptedHttpServer;
    const auto page = ScriptedHttpServer::reply("<html><body>Please accept our terms.</body></html>");
    const auto session = ScriptedHttpServer::reply("<r><TarnSessionId>s</TarnSessionId></r>");
    ScriptedHttpServer network([&](auto& connection) {
        for (int answered = 0; connection.readRequest(); ++answered)
            connection.send(answered == 1 ? session : page);
    });
    Tarn tarn(std::make_shared<TarnHost>(TarnHost::Options{.endpoint = network.url()}));
    const auto logIn = [&] { tarn.logIn({"älice", token}); };
    EXPECT_EQ(kindOf(logIn), tarn::ErrorKind::unreadableReply);
    logIn();
    EXPECT_EQ(kindOf([&] { tarn.write("/f", "x"); }), tarn::ErrorKind::unreadableReply);
}

TEST_F(TarnTest, RefusesPathsThatNeedASlash)
{
    const std::function<void()> steps[] = {
        [&] { alice.remove("a"); },
        [&] { alice.list(""); },
        [&] { alice.move("/a", "b"); },
        [&] { alice.grants("a"); },
    };
    for (const auto& step : steps)
        EXPECT_EQ(kindOf(step), tarn::ErrorKind::invalidRequest) << &step - steps;
}

TEST_F(TarnTest, StaysLoggedInWhenAnotherLoginFails)
{
    EXPECT_EQ(kindOf([&] { alice.logIn({"bob", "wrong"}); }), tarn::ErrorKind::notLoggedIn);
    alice.write("/f", "x");
    EXPECT_EQ(alice.read({"/f", "älice"}), "x");
}

TEST_F(TarnTest, RefusesWrongTokensAndEndpoints)
{
    EXPECT_EQ(kindOf([&] { Tarn(service.url(), {"älice", "wrong"}); }), tarn::ErrorKind::notLoggedIn);
    EXPECT_THROW(Tarn("files.example.org", {"älice", token}), std::invalid_argument);
}

} // namespace
} // namespace connector::host
