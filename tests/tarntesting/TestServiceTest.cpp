// What an application's tests lean on: the service is the real one, each fault does what its line says and no more,
// and a line that says nothing is told.
#include "tarntesting/TestService.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/TextConversion.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/session/SessionMessages.h"
#include "tarnhost/TarnHost.h"
#include "tarnhost/TransportError.h"
#include "tarntesting/LostResults.h"

#include <gmock/gmock.h>

namespace tarntesting {
namespace {

using namespace connector;
using namespace connector::tarn;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

class TestServiceTest : public ::testing::Test {
protected:
    TestServiceTest()
    {
        logIn();
        auto file = std::make_unique<FileCreate>();
        file->path = u"/f";
        file->content = common::DataBuffer("0123456789");
        host.fileAccess()->createFile(std::move(file)).get();
    }

    void logIn()
    {
        auto login = std::make_unique<Login>();
        login->user = u"alice";
        login->authenticationToken = token;
        host.session()->login(std::move(login)).get();
    }

    /// The content of the file, or what went wrong.
    std::string read()
    {
        auto request = std::make_unique<FileRead>();
        request->path = u"/f";
        try {
            return std::string(host.fileAccess()->readFile(std::move(request)).get()->content.bytes());
        } catch (const TarnError& error) {
            return std::to_string(error.status()) +
                   (error.kind() == ErrorKind::unavailable ? " unavailable" : "");
        } catch (const host::TransportError& error) {
            return error.mayHaveHappened() ? "in doubt" : "lost";
        }
    }

    bool deleted()
    {
        auto request = std::make_unique<FileDelete>();
        request->path = u"/f";
        try {
            host.fileAccess()->deleteFile(std::move(request)).get();
        } catch (const host::TransportError& error) {
            EXPECT_TRUE(error.mayHaveHappened());
        }
        return read() == "404";
    }

    TestService service;
    const std::string token = service.addUser("alice");
    host::TarnHost host{{.endpoint = service.url()}};
};

TEST_F(TestServiceTest, GoesWrongAsTheScriptSays)
{
    const std::string all = "0123456789";
    service.script("readFile #2 cut 3 ; comment\n\n  readFile every 3 refuse 503\nlistFolder always drop");
    EXPECT_THAT((std::vector{read(), read(), read(), read()}),
                ElementsAre(all, "lost", "503 unavailable", all));
    EXPECT_THAT(service.unfired(), ElementsAre("listFolder always drop"));

    service.script("seed 7\nreadFile 50% cut 0");
    std::vector<std::string> first, again;
    for (auto* row : {&first, &again}) {
        for (int i = 0; i < 20; ++i)
            row->push_back(read());
        service.script("seed " + std::to_string(service.seed()) + "\nreadFile 50% cut 0");
    }
    EXPECT_THAT(first, AllOf(Contains(all), Contains("lost")));
    EXPECT_EQ(first, again);

    service.script("any #1 wait 300ms");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(read(), all);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));

    service.script("deleteFile #1 drop\ndeleteFile #2 lose");
    EXPECT_FALSE(deleted());
    EXPECT_TRUE(deleted());
    EXPECT_THAT(service.unfired(), IsEmpty());
}

TEST_F(TestServiceTest, SaysWhichLineCannotBeRead)
{
    for (const auto& [line, says] :
         {std::pair<std::string, std::string>("read #2 drop", "no operation: any, login"),
          {"any sometimes drop", "no moment: always, #2"},
          {"any always explode", "no fault: wait TIME"},
          {"any always wait 3", "no time: 200ms, or 2s"},
          {"any always refuse 200", "from 400 to 599"},
          {"any every 0 drop", "every 0 is never"},
          {"any #0 drop", "#0 is never"},
          {"any 200% drop", "200% is more than always"},
          {"any always cut 1 2", "one word too many"}})
        EXPECT_THAT(([&, line = line] { service.script("\nping #1 drop\n" + line); }),
                    ThrowsMessage<std::invalid_argument>(AllOf(HasSubstr("line 3: "), HasSubstr(says))));
}

TEST_F(TestServiceTest, EndsSessionsByItsOwnClockAndUsersAtOnce)
{
    service.advance(std::chrono::minutes(29));
    EXPECT_EQ(read(), "0123456789");
    service.advance(std::chrono::minutes(32));
    EXPECT_EQ(read(), "401");
    logIn();
    service.removeUser("alice");
    EXPECT_EQ(read(), "401");
    EXPECT_THROW(service.removeUser("alice"), std::runtime_error);
}

TEST(LostResults, AreWhatCodeForgets)
{
    const LostResults lost;
    const Promise<int> unasked;
    auto awaited = Promise<int>().getFuture();
    EXPECT_THROW(awaited.get(), std::runtime_error);
    static_cast<void>(makeExceptionalFuture<int>(std::runtime_error("Unseen.")).then([](Future<int>&&) {}));
    EXPECT_THAT(lost.dropped(), ElementsAre("int"));
    EXPECT_THAT(lost.unobserved(), ElementsAre("Unseen."));
}

} // namespace
} // namespace tarntesting
