// A service that answers in good form what cannot be, or not for long.
#include "tests/cli/Shell.h"
#include "tests/support/ScriptedHttpServer.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace tarncli::test {
namespace {

using connector::host::test::ScriptedHttpServer;
using testing::HasSubstr;

std::string attributes(const std::string& type, int size)
{
    return "<FileAttributes><Type>" + type + "</Type><Name>f</Name><Size>" + std::to_string(size) +
           "</Size><Writable>true</Writable></FileAttributes>";
}

/// Has a folder that holds itself, and a file of five bytes that is said to have `sizes`, one for each time somebody
/// asks, the last for all further ones.
class StrangeService {
public:
    explicit StrangeService(std::vector<int> sizes = {5})
        : told(std::move(sizes)), server([this](ScriptedHttpServer::Connection& client) { serve(client); })
    {
        shell.set("TARN_ENDPOINT", server.url());
        shell.set("TARN_USER", "alice");
        shell.set("TARN_TOKEN", "token");
    }

    std::size_t requests(const std::string& start) const
    {
        const auto heads = server.heads();
        return static_cast<std::size_t>(std::count_if(
            heads.begin(), heads.end(), [&](const auto& head) { return head.starts_with(start); }));
    }

    Shell shell;

private:
    void serve(ScriptedHttpServer::Connection& client)
    {
        while (const auto head = client.readHead())
            if (!client.send(answer(*head))) return;
    }

    std::string answer(const std::string& head)
    {
        if (head.starts_with("GET /service/v1/files/")) return reply("application/octet-stream", "five!");
        if (head.starts_with("GET /service/v1/login")) return document("<TarnSessionId>s</TarnSessionId>");
        if (head.starts_with("GET /service/v1/folders"))
            return document("<FolderSummary><Name>d</Name></FolderSummary><Files/>"
                            "<Folders><FolderSummary><Name>d</Name></FolderSummary></Folders>");
        if (!head.starts_with("GET /service/v1/filesystem/f")) return document(attributes("FOLDER", 0));
        const auto size = told.front();
        if (told.size() > 1) told.erase(told.begin());
        return document(attributes("FILE", size));
    }

    static std::string document(const std::string& inner)
    {
        return reply("application/xml", "<Response>" + inner + "</Response>");
    }

    static std::string reply(const std::string& type, const std::string& body)
    {
        return "HTTP/1.1 200 OK\r\nContent-Type: " + type +
               "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    std::vector<int> told; ///< one request about the file at a time
    ScriptedHttpServer server;
};

TEST(StrangeService, FoldersWithoutEndAreCutOff)
{
    const StrangeService service;
    const auto result = service.shell.tarn({"tree"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_THAT(result.err, HasSubstr("nested too deeply"));
    EXPECT_LT(service.requests("GET /service/v1/folders"), 300u);
}

TEST(StrangeService, AFileOfAnotherSizeIsFetchedOnceMoreIfItWasReplacedMeanwhile)
{
    for (const auto* verb : {"cat /f", "get -f /f ."}) {
        const StrangeService wrong({1000});
        wrong.shell.write("f", "old");
        const auto refused = wrong.shell.run(std::string("tarn ") + verb);
        EXPECT_EQ(refused.exitCode, 1) << verb;
        EXPECT_EQ(refused.out, "");
        EXPECT_THAT(refused.err, HasSubstr("sent 5 bytes of a content that has 1000"));
        EXPECT_THAT(contentsOf(wrong.shell.work()), testing::ElementsAre(testing::Pair("f", "old")));
        EXPECT_EQ(wrong.requests("GET /service/v1/files/f"), 2u);

        const StrangeService replaced({1000, 5});
        const auto fetched =
            replaced.shell.run(std::string("tarn -q ") + verb + " && cat f 2>/dev/null; true");
        EXPECT_EQ(fetched.out, "five!") << fetched.err;
    }
}

} // namespace
} // namespace tarncli::test
