// Scripts read one document from standard output, or one from standard error, whatever the verb.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace tarncli::test {
namespace {

using nlohmann::json;
using tarnd::test::TarndProcess;

TEST(Json, EveryVerbWritesOneDocument)
{
    TarndProcess service;
    service.start();
    Shell shell;
    shell.set("TARN_TOKEN", shell.logIn(service, "alice"));
    service.addUser("bob");
    shell.write("a\nb", std::string("\xff\0", 2));
    std::map<std::string, json> documents;
    for (const std::string command :
         {"login alice",  "ping",      "whoami",        "mkdir /d",      "put a*b /d/a", "ls /d",
          "tree",         "stat /d/a", "cat /d/a",      "get /d/a copy", "get /d/a -",   "mv /d/a /a",
          "grant /a bob", "grants",    "revoke /a bob", "shared",        "link /a",      "versions /a",
          "restore /a 1", "rm /a",     "local status",  "local stop",    "logout"}) {
        const auto verb = command.substr(0, command.find(' '));
        const auto result = shell.run("tarn --json " + command);
        EXPECT_EQ(result.exitCode, 0) << verb << ": " << result.err;
        EXPECT_EQ(result.err, "") << verb;
        documents[verb] = json::parse(result.out, nullptr, false);
        EXPECT_TRUE(documents[verb].is_object()) << verb << ": " << result.out;
    }
    EXPECT_EQ(documents["ls"]["files"][0]["size"], 2);
    EXPECT_EQ(documents["cat"]["files"][0]["content"], "/wA=");
    EXPECT_EQ(documents["versions"]["versions"][0]["label"], 1);
    EXPECT_EQ(documents["restore"]["id"], documents["versions"]["versions"][0]["id"]);
    const auto grant = documents["grants"]["grants"][0];
    EXPECT_EQ(grant["id"], documents["grant"]["id"]);
    EXPECT_EQ(grant["user"], "bob");
    EXPECT_EQ(grant["path"], "/a");
}

TEST(Json, FailuresNameSentenceAndExitCode)
{
    Shell shell;
    const auto usage = shell.tarn({"--json", "ls", "nope"});
    EXPECT_EQ(json::parse(usage.err)["code"], 2);
    EXPECT_EQ(json::parse(shell.tarn({"lss", "--json"}).err)["code"], 2);
    const auto unreachable = shell.tarn({"--json", "--endpoint", "http://127.0.0.1:1", "login", "alice"});
    EXPECT_EQ(unreachable.exitCode, 2); // no token on standard input
    shell.set("TARN_TOKEN", "x");
    const auto refused = shell.tarn({"--json", "--endpoint", "http://127.0.0.1:1", "login", "alice"});
    EXPECT_EQ(refused.exitCode, 7);
    EXPECT_EQ(json::parse(refused.err)["code"], 7);
    EXPECT_EQ(refused.out, "");
    shell.set("TARN_TOKEN", "");

    TarndProcess service;
    service.start();
    shell.logIn(service, "alice");
    const auto partly = shell.run("touch x && tarn --json put x missing /");
    EXPECT_EQ(partly.exitCode, 3);
    const auto removed = shell.run("tarn -q put x /x && tarn --json rm /x /y");
    EXPECT_EQ(removed.exitCode, 8);
    const auto document = json::parse(removed.out);
    EXPECT_EQ(document["deleted"], json::array({"/x"}));
    EXPECT_EQ(document["failed"][0]["item"], "/y");
    EXPECT_EQ(document["failed"][0]["code"], 3);
    EXPECT_EQ(json::parse(removed.err)["code"], 8);
}

} // namespace
} // namespace tarncli::test
