// Scripts read one document from standard output, or one from standard error, whatever the verb.
#include "tests/cli/Shell.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>

namespace tarncli::test {
namespace {

using nlohmann::json;
using tarnd::test::TarndProcess;

/// The first JSON block below each heading of the document that describes them.
std::map<std::string, json> documentedExamples()
{
    std::ifstream in(TARN_SOURCE_DIR "/docs/json.md");
    std::map<std::string, json> examples;
    std::string verb;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("## ")) verb = line.substr(3);
        if (line.starts_with("{") && !verb.empty()) examples.emplace(verb, json::parse(line));
    }
    return examples;
}

/// The same keys with the same types; what is in a list is like one of the examples there, if there are any.
bool isLike(const json& actual, const json& example)
{
    if (actual.is_number() && example.is_number()) return true;
    if (actual.type() != example.type()) return false;
    if (actual.is_array())
        return example.empty() || std::ranges::all_of(actual, [&](const json& each) {
                   return std::ranges::any_of(example, [&](const json& one) { return isLike(each, one); });
               });
    if (!actual.is_object()) return true;
    return actual.size() == example.size() && std::ranges::all_of(actual.items(), [&](const auto& item) {
               return example.contains(item.key()) && isLike(item.value(), example.at(item.key()));
           });
}

constexpr std::pair<const char*, const char*> lists[] = {
    {"find /", "found"},          {"du /", "usage"},           {"versions /d/b", "versions"},
    {"grants", "grants"},         {"shared", "shared"},        {"link --list", "links"},
    {"profile list", "profiles"}, {"undo --list", "commands"},
};

TEST(Json, EveryVerbWritesOneDocumentAsDescribed)
{
    TarndProcess service;
    service.start();
    Shell shell;
    shell.set("TARN_TOKEN", shell.logIn(service, "alice"));
    shell.set("EDITOR", "sed -i s/a/b/");
    ASSERT_EQ(shell
                  .run("export TARN_USER=bob TARN_TOKEN=$1; echo b > b && tarn put b /b && tarn mkdir /d && "
                       "tarn grant /b alice && tarn grant /d alice",
                       {service.addUser("bob")})
                  .exitCode,
              0);
    shell.write("a\nb", std::string("\xff\0", 2));
    std::map<std::string, json> documents;
    shell.run("tarn --record rec ls /none");
    documents.emplace("replay", json::parse(shell.run("tarn --json replay rec").out, nullptr, false));
    for (const std::string command : {"login alice",
                                      "ping",
                                      "whoami",
                                      "doctor",
                                      "mkdir /d",
                                      "put a*b /d/a",
                                      "ls /d",
                                      "tree",
                                      "find /",
                                      "du /",
                                      "stat /d/a",
                                      "cat /d/a",
                                      "check . /d; true",
                                      "get /d/a copy",
                                      "get /d/a -",
                                      "cp /d/a /d/b",
                                      "edit /d/b",
                                      "mv /d/a /a",
                                      "grant /a bob",
                                      "grants",
                                      "explain /a",
                                      "revoke /a bob",
                                      "shared",
                                      "link /a",
                                      "versions /a",
                                      "restore /a 1",
                                      "rm /a",
                                      "mkdir /u",
                                      "undo --yes",
                                      "sync /d s",
                                      "sync --plan p /d s",
                                      "apply p",
                                      "profile list",
                                      "local status",
                                      "local stop",
                                      "help ls",
                                      "version",
                                      "completion fish",
                                      "man put",
                                      "logout"}) {
        const auto verb = command.substr(0, command.find(' '));
        const auto result = shell.run("tarn --json " + command);
        EXPECT_EQ(result.exitCode, 0) << verb << ": " << result.err;
        documents.emplace(verb, json::parse(result.out, nullptr, false));
    }
    for (const auto& [verb, example] : documentedExamples())
        EXPECT_TRUE(isLike(documents[verb], example)) << verb << ": " << documents[verb];
    EXPECT_EQ(shell.run("tarn --help | sed -n '/^Verbs/,/^$/p' | grep -c '^  [a-z]'").out,
              std::to_string(documentedExamples().size()) + "\n")
        << "verbs, and descriptions of what they write";
    shell.set("TARN_USER", "alice"); // who has logged out
    shell.run("tarn grant /d bob && tarn link /d");
    for (const auto& [list, key] : lists) {
        const auto whole = json::parse(shell.run("tarn --json " + std::string(list)).out, nullptr, false);
        EXPECT_FALSE(whole[key].empty()) << list;
        std::string lines;
        for (const auto& item : whole[key])
            lines += item.dump() + "\n";
        EXPECT_EQ(shell.run("tarn --json-lines " + std::string(list)).out, lines) << list;
    }
    EXPECT_EQ(shell.run("tarn --json-lines ls /d").out,
              shell.run("tarn --json-lines find /d | tail -n +2").out);
    shell.run("tarn put b /d/only && tarn put rec '/d/a*b'");
    const auto compared = json::parse(shell.run("tarn --json check . /d").out, nullptr, false);
    std::set<std::string> lines;
    for (const auto* verdict : {"missing", "extra", "different"}) {
        EXPECT_FALSE(compared[verdict].empty()) << verdict;
        for (const auto& path : compared[verdict])
            lines.insert(json{{"difference", verdict}, {"path", path}}.dump() + "\n");
    }
    EXPECT_EQ(shell.run("tarn --json-lines check . /d | sort").out,
              std::accumulate(lines.begin(), lines.end(), std::string()));
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
    EXPECT_EQ(document["failed"][0]["kind"], "notFound");
    EXPECT_EQ(json::parse(removed.err)["code"], 8);
}

} // namespace
} // namespace tarncli::test
