// What the README and the help show is typed as it stands there, twice: an example that fails teaches nothing, and most
// commands may be repeated.
#include "tarnhost/Tarn.h"
#include "tests/cli/Shell.h"

#include <fstream>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>

namespace tarncli::test {
namespace {

using connector::host::Tarn;
using tarnd::test::TarndProcess;

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

#ifdef TARN_SANITIZED
// Programs start many times slower here: those of one verb in three are typed.
constexpr std::size_t stride = 3;
#else
constexpr std::size_t stride = 1;
#endif

/// What is here before the examples of a verb, with stand-ins for the programs that they name.
constexpr const char* here =
    R"(rm -rf * ~/.config ~/.local/state/tarn/undo && mkdir -p bin photos ~/.zfunc ~/.config/fish/completions &&
    echo notes >notes.md && echo a >a.txt && echo b >b.txt && echo jpg >photos/a.jpg && : >photos/b.tmp &&
    for each in pg_dump code; do echo 'echo dump' >bin/$each; done && echo 'cat >/dev/null' >bin/psql &&
    echo 'echo $ALICE' >bin/pass && chmod +x bin/*)";

/// What is there before each example.
void store(Tarn& me)
{
    for (const auto& entry : me.list("/"))
        entry.isFolder ? me.removeFolder("/" + entry.name, true) : me.remove("/" + entry.name);
    for (const auto* folder : {"/docs", "/photos", "/logs", "/album"})
        me.makeFolder(folder);
    for (const auto* file :
         {"/a.txt", "/docs/c.txt", "/photo.jpg", "/disk.img", "/backup.sql", "/logs/old.log"})
        me.write(file, "stored\n");
    for (const auto* file : {"/photos/a.jpg", "/album/z.jpg"})
        me.write(file, "jpg\n");
    me.write("/docs/a.txt", "a\n");
    me.write("/photos/b.tmp", "");
    me.write("/notes.md", "before\n");
    me.write("/notes.md", "notes\n", connector::host::IfThere::keep);
    me.grant("/docs", "bob");
}

/// Those that do not end with 0 both times, by how they begin.
struct Expected {
    const char* line;
    int first;
    int second;
};

constexpr Expected expected[] = {
    {"tarn mkdir /docs", 6, 6},   {"tarn mv ", 0, 3},
    {"tarn rm ", 0, 3},           {"tarn revoke /docs bob", 0, 3},
    {"tarn revoke 5c1f", 3, 3}, // an id that nobody has
    {"tarn link --revoke", 0, 3}, {"tarn profile add", 0, 6},
    {"tarn replay", 3, 3},        {"pg_dump", 0, 6}, // what comes through a pipe is not compared
};

TEST(Examples, OfTheHelpRunAsPrintedTwice)
{
    TarndProcess service;
    service.start();
    Shell shell;
    shell.set("ALICE", shell.logIn(service, "alice"));
    ASSERT_EQ(shell
                  .run("mkdir docs photos shared && echo a >docs/a.txt && echo a >photos/b.jpg && "
                       "tarn put -r docs photos shared /")
                  .exitCode,
              0);
    service.addUser("bob");
    const auto token = shell.logIn(service, "me");
    shell.set("ME", token);
    for (const std::string folder : {"/docs", "/photos", "/shared"})
        shell.run("TARN_USER=alice tarn grant " + folder + " me");
    shell.set("TARN_USER", "me");
    shell.set("EDITOR", "true");
    Tarn me(service.url(), {"me", token});
    const auto verbs = shell.run("tarn --help | sed -n '/^Verbs/,/^$/s/^  \\([a-z]*\\).*/\\1/p'").out;
    std::size_t number = 0;
    for (const auto& verb : linesOf(verbs)) {
        if (number++ % stride != 0) continue;
        const bool isProfile = verb == "profile";
        ASSERT_EQ(shell.run(here + std::string(" && echo $ME | tarn login me")).exitCode, 0);
        if (!isProfile) shell.run("tarn profile add work " + service.url() + " --user me");
        for (auto line : linesOf(shell.run("tarn help " + verb + " | sed -n '/^Examples:/,$s/^  //p'").out)) {
            line = line.substr(0, line.find("  "));
            SCOPED_TRACE(line);
            if (verb != "link" || line == "tarn link /photo.jpg") store(me); // links go with what they open
            for (const auto* host :
                 {"https://files.example.org", "https://nas:7070", "http://127.0.0.1:7070"})
                if (const auto at = line.find(host); at != std::string::npos)
                    line.replace(at, std::string(host).size(), service.url());
            if (verb == "undo") shell.run("tarn mkdir /new");
            if (verb == "replay") shell.run("tarn --record failed.json ls /none");
            if (verb == "put") me.remove("/backup.sql");
            if (verb == "mv") me.remove("/docs/a.txt");
            const auto* found = std::ranges::find_if(
                expected, [&](const Expected& each) { return line.starts_with(each.line); });
            for (const bool isFirst : {true, false}) {
                const int code = found == std::end(expected) ? 0 : isFirst ? found->first : found->second;
                const auto result =
                    shell.run("export PATH=$PWD/bin:$PATH; echo $ALICE | bash -c \"$1\"", {line});
                EXPECT_EQ(result.exitCode, code) << (isFirst ? "" : "again: ") << result.err;
            }
        }
    }
}

/// Commands that stand within a line, but for those with a word to fill in, for verbs that are only named, and for what
/// asks at a terminal.
void addInline(const std::string& line, std::vector<std::string>& commands)
{
    static const std::regex code("`([^`]+)`");
    static const std::regex command("(.*[|(] ?)?tarn .*");
    static const std::regex gap(".*\\b(FILE|VERB)\\b.*|tarn (sync|profile add|undo)");
    for (std::sregex_iterator each(line.begin(), line.end(), code), end; each != end; ++each)
        if (const auto text = each->str(1); std::regex_match(text, command) && !std::regex_match(text, gap))
            commands.push_back(text);
}

TEST(Examples, OfTheReadmeRunAsPrintedTwice)
{
    std::ifstream in(TARN_SOURCE_DIR "/README.md");
    std::vector<std::string> block;
    std::vector<std::string> inLines;
    std::string language;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("```")) {
            language = language.empty() ? line : "";
        } else if (language.empty()) {
            addInline(line, inLines);
        } else if (language == "```sh" && line.starts_with("tarn ")) {
            block.push_back(line);
        }
    }
    EXPECT_GT(block.size(), 10u);
    EXPECT_GT(inLines.size(), 5u);
    Shell shell;
    shell.run(here);
    for (const bool isFirst : {true, false})
        for (const auto& line : block) {
            const auto result = shell.run("bash -c \"$1\"", {line});
            EXPECT_EQ(result.exitCode, 0) << line << (isFirst ? "" : ", again") << '\n' << result.err;
        }

    // These are about a service of a team, with an account on it.
    TarndProcess service;
    service.start();
    shell.set("ALICE", service.addUser("alice"));
    service.addUser("bob");
    shell.set("URL", service.url());
    ASSERT_EQ(shell
                  .run("tarn profile add work $URL --user alice && tarn profile use work && "
                       "echo $ALICE | tarn login && tarn mkdir /photos /2024")
                  .exitCode,
              0);
    for (const bool isFirst : {true, false})
        for (auto line : inLines) {
            SCOPED_TRACE(line + (isFirst ? "" : ", again"));
            const std::string host = "https://files.example.org";
            if (const auto at = line.find(host); at != std::string::npos)
                line.replace(at, host.size(), service.url());
            const auto result = shell.run("export PATH=$PWD/bin:$PATH; echo $ALICE | bash -c \"$1\"", {line});
            const bool isStored = line.starts_with("pg_dump") && !isFirst;
            EXPECT_EQ(result.exitCode, isStored ? 6 : 0) << result.err;
        }
}

} // namespace
} // namespace tarncli::test
