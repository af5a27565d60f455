// A service that answers in good form what cannot be: nothing runs for ever, and nothing is reported fetched.
#include "tests/cli/Shell.h"
#include "tests/support/FaultServer.h"

#include <gmock/gmock.h>

#include <atomic>

namespace tarncli::test {
namespace {

using connector::host::test::document;
using connector::host::test::FaultServer;
using connector::host::test::replyOf;
using connector::host::test::TrueReply;
using testing::HasSubstr;

/// A folder that holds itself a thousand times, and a file of five bytes that is said to have `sizes`, one for each time
/// somebody asks, the last for all further ones.
class StrangeService {
public:
    explicit StrangeService(std::vector<int> sizes = {})
        : told(std::move(sizes))
        , server(
              {}, [this](const std::string& request) { return answer(request); }, never)
    {
        shell.set("TARN_ENDPOINT", server.url());
        shell.set("TARN_USER", "alice");
        shell.set("TARN_TOKEN", "token");
        shell.write("f", "old");
    }

    Shell shell;
    std::atomic<int> listings{0};
    std::atomic<int> contents{0};

private:
    static bool never(const std::string&) { return false; }

    TrueReply answer(const std::string& request)
    {
        if (request.starts_with("GET /service/v1/login")) return document("<TarnSessionId>s</TarnSessionId>");
        if (request.starts_with("GET /service/v1/files/"))
            return ++contents, replyOf("application/octet-stream", "five!");
        if (request.starts_with("GET /service/v1/folders"))
            return document(std::string("<FolderSummary><Name>d</Name></FolderSummary><Files/>") +
                            (++listings < 1000
                                 ? "<Folders><FolderSummary><Name>d</Name></FolderSummary></Folders>"
                                 : "<Folders/>"));
        const bool isFile = request.starts_with("GET /service/v1/filesystem/f");
        const auto size = isFile ? told.front() : 0;
        if (isFile && told.size() > 1) told.erase(told.begin());
        return document(std::string("<FileAttributes><Type>") + (isFile ? "FILE" : "FOLDER") +
                        "</Type><Name>f</Name><Writable>true</Writable><Size>" + std::to_string(size) +
                        "</Size></FileAttributes>");
    }

    std::vector<int> told;
    FaultServer server;
};

TEST(StrangeService, FoldersWithoutEndAreCutOff)
{
    const StrangeService service;
    const auto result = service.shell.tarn({"tree"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_THAT(result.err, HasSubstr("nested too deeply"));
    EXPECT_LT(service.listings, 300);
}

TEST(StrangeService, AContentOfAnotherSizeIsFetchedOnceMoreInCaseTheFileWasReplaced)
{
    for (const auto* verb : {"cat /f", "get -f /f ."}) {
        const StrangeService wrong({1000});
        const auto refused = wrong.shell.run(std::string("tarn ") + verb);
        EXPECT_EQ(refused.exitCode, 1) << verb;
        EXPECT_EQ(refused.out, "");
        EXPECT_THAT(refused.err, HasSubstr("sent 5 bytes of a file that has 1000"));
        EXPECT_THAT(contentsOf(wrong.shell.work()), testing::ElementsAre(testing::Pair("f", "old")));
        EXPECT_EQ(wrong.contents, 2);

        const StrangeService replaced({1000, 5});
        EXPECT_THAT(replaced.shell.run(std::string("tarn -q ") + verb + " && cat f").out,
                    testing::StartsWith("five!"));
    }
}

} // namespace
} // namespace tarncli::test
