// What people type at a shell, line by line: each command's exit code and output, over one small tree.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

namespace tarncli::test {
namespace {

using tarnd::test::TarndProcess;

constexpr const char* tree = "mkdir -p photos/2024 && printf 0123456789 >photos/a.jpg && "
                             "head -c 2000 /dev/zero >photos/b.JPG && echo n >photos/ö.txt && "
                             "echo c >photos/2024/c.jpg && echo h >photos/2024/.h.jpg && "
                             "tarn put -r photos /";

struct Row {
    const char* typed;
    int exitCode;
    const char* output; ///< of standard output, exactly
};

constexpr Row rows[] = {
    // Wildcards, several paths, orders.
    {"tarn ls '/photos/*.jpg'", 0, "/photos/a.jpg\n"},
    {"tarn ls '/p*/?.txt'", 0, "/photos/ö.txt\n"},
    {"tarn ls '/photos/*/c.jpg' /photos/2024", 0, "/photos/2024/c.jpg\n\n/photos/2024:\n.h.jpg\nc.jpg\n"},
    {"tarn ls -R /photos", 0, "/photos:\n2024/\na.jpg\nb.JPG\nö.txt\n\n/photos/2024:\n.h.jpg\nc.jpg\n"},
    {"tarn ls -Sr /photos", 0, "2024/\nö.txt\na.jpg\nb.JPG\n"},
    {"tarn ls -lh /photos/b.JPG | awk '{print $1, $2, $NF}'", 0, "2.0 KiB b.JPG\n"},
    {"tarn put photos/a.jpg /photos/new && tarn ls -t /photos | head -n 1; tarn rm /photos/new", 0, "new\n"},
    {"tarn ls '/photos/*.none'", 3, ""},
    {"tarn --json ls /photos/2024 /photos/a.jpg | grep -o '\"path\":\"[^\"]*\"'", 0,
     "\"path\":\"/photos/a.jpg\"\n\"path\":\"/photos/2024\"\n"},
    // find, with one dash and with two
    {"tarn find /photos -iname '*.jpg' -type f", 0,
     "/photos/a.jpg\n/photos/b.JPG\n/photos/2024/.h.jpg\n/photos/2024/c.jpg\n"},
    {"tarn find --size +1k --size -2k", 0, "/photos/b.JPG\n"},
    {"tarn find --type d --max-depth 1", 0, "/\n/photos\n"},
    {"tarn find / -mtime -1h -name c.jpg -print0 | tr '\\0' '!'", 0, "/photos/2024/c.jpg!"},
    {"tarn find / --mtime +1d", 0, ""},
    {"tarn find /photos/a.jpg /none", 8, "/photos/a.jpg\n"},
    {"tarn find / --size 5x", 2, ""},
    {"tarn --json find --name c.jpg | grep -o '\"path\":\"[^\"]*\"'", 0, "\"path\":\"/photos/2024/c.jpg\"\n"},
    // du
    {"tarn du -b /photos", 0, "       4  /photos/2024\n    2016  /photos\n"},
    {"tarn du -s '/photos/[2b]*'", 0, "     4 B  /photos/2024\n 2.0 KiB  /photos/b.JPG\n"},
    {"tarn --json du -s", 0, "{\"failed\":[],\"usage\":[{\"bytes\":2016,\"files\":5,\"path\":\"/\"}]}\n"},
    {"tarn help | grep -Ec '^  (ls|help) '; tarn help du | sed -n 2p", 0,
     "2\nUsage: tarn du [OPTIONS] [PATH...]\n"},
    // cp
    {"tarn cp /photos/a.jpg /copy.jpg && tarn cat /copy.jpg", 0, "0123456789"},
    {"tarn cp /photos/b.JPG /copy.jpg", 6, ""},
    {"tarn cp -f /photos/b.JPG /copy.jpg && tarn cat /copy.jpg | wc -c && tarn rm /copy.jpg", 0, "2000\n"},
    {"tarn cp -r /photos /album && tarn cp -r /photos/ /flat && tarn check photos /album/photos && "
     "tarn check photos /flat",
     0, ""},
    {"tarn cp -r /photos/ /flat 2>&1", 0, "tarn: Nothing to do in \"/flat\": 5 files were there already.\n"},
    {"tarn cp -r /photos /photos/2024 || tarn cp -r /photos /photos/inside || tarn ls /photos/inside", 3, ""},
    {"tarn cp /photos /x", 2, ""},
    {"tarn cp '/photos/*.jpg' /flat/b.JPG /album/ && tarn ls /album", 0, "photos/\na.jpg\nb.JPG\n"},
    {"tarn rm -r /album /flat", 0, ""},
    // check
    {"tarn check photos /photos", 0, ""},
    // What a killed command has left, of this machine and of another, and what is on its way
    {"cd photos/2024 && dead=.tarn-$(uname -n)-99999999 && touch $dead-1.part $dead-2.part "
     ".tarn-else-1-1.part && "
     "flock $dead-2.part tarn get -qr /photos ../.. && ls .tarn* | wc -l && tarn check . /photos/2024 && "
     "rm .tarn*",
     0, "2\n"},
    {"cp -r photos p && echo >p/extra && echo N >p/ö.txt && rm p/a.jpg && mkdir p/sub && "
     "{ tarn check p /photos >out; code=$?; sort out; exit $code; }",
     1, "different  ö.txt\nextra      a.jpg\nmissing    extra\nmissing    sub/\n"},
    {"tarn check photos/a.jpg /photos/b.JPG", 1, "different  a.jpg\n"},
    {"tarn check photos /photos/a.jpg", 6, ""},
    // get and rm with wildcards, names that look like them, names that look like options
    {"mkdir got && tarn get '/photos/?.j*' /photos/b.JPG got && ls got", 0, "a.jpg\nb.JPG\n"},
    {"tarn put photos/a.jpg '/x*y' && tarn put photos/a.jpg /xzy && tarn rm '/x*y' && tarn ls '/x*'", 0,
     "/xzy\n"},
    {"tarn rm '/photos/*.none'", 3, ""},
    {"tarn rm -f '/photos/*.none'", 0, ""},
    {"tarn rm '/*/*.jpg' && tarn ls /photos", 0, "2024/\nb.JPG\nö.txt\n"},
    {"mv xzy ./-dash 2>/dev/null || echo d >./-dash; tarn put -- -dash /-dash && tarn ls '/-*'", 0,
     "/-dash\n"},
    {"mkdir words && cd words && echo 1 >++ && tarn -q put ++ / && tarn -q get /++ '[out]' && "
     "tarn -q put -- '[out]' '/[b,c]' && ls && tarn find / --name '[[+]+'; tarn rm -q /++ '/[b,c]' "
     "'[d,e]' 2>&1; tarn mv /a /b '[c]' 2>&1",
     2,
     "++\n[out]\n/++\ntarn: The remote path \"[d,e]\" does not begin with '/'; did you mean \"/[d,e]\"?\n"
     "tarn: \"[c]\" is not expected here; see `tarn mv --help`.\n"},
    // What is told of requests, and repeated
    {"tarn -v ls / 2>&1 >/dev/null | grep -Ec '^tarn: #[0-9]+ GET folders /service/v1/folders/: 200, .* ms$'",
     0, "1\n"},
    {"tarn --log-file log --record rec put photos/b.JPG /up && tarn rm /up && "
     "grep -c '^20.*Z [0-9]* #[0-9]* try 1: 404, .* answering [0-9.]* ms' log && tarn replay rec 2>&1 && "
     "tarn cat /up | wc -c",
     0, "1\ntarn: 2 repeated, 0 left out, 0 with another status.\n2000\n"},
    {"tarn replay rec | sed 's/^ *#[0-9]* *//; s/?.*  / /'", 0,
     "get /service/v1/filesystem/up 200, was 404\nput /service/v1/files/up 409, was 200\n"},
    {"tarn rm /up; TARN_ENDPOINT= tarn replay rec", 2, ""},
    {"tarn replay photos/b.JPG", 2, ""},
    // Names that the wire has no place for, and back
    {"mkdir odd && echo q >'odd/what?' && echo h >'odd/#1 100%3F a%2F' && printf x >\"odd/new\nline\" && "
     "printf x >odd/$(printf '\\302\\205\\357\\277\\276%%C2%%85') && "
     "tarn --encode-names put -qr odd / && tarn ls /odd",
     0, "%231 100%253F a%2F\n%C2%85%EF%BF%BE%25C2%85\nnew%0Aline\nwhat%3F\n"},
    {"tarn --encode-names ls /odd '/odd/w?at?' && tarn --encode-names cat '/odd/what?'", 0,
     "/odd/what?\n\n/odd:\n#1 100%3F a%2F\n\\u{85}\\u{fffe}%C2%85\nnew\\nline\nwhat?\nq\n"},
    {"tarn --encode-names get -qr /odd back && diff -r odd back/odd && tarn --encode-names sync -q /odd/ "
     "down && "
     "diff -r odd down && tarn --encode-names check -q odd /odd",
     0, ""},
    {"rm 'odd/what?' && touch 'odd/#2' && tarn --encode-names sync -q --delete --plan pl odd / >out && "
     "tarn -q apply pl && tarn --encode-names undo -n 2>&1 | tail -n 2; tarn rm -r /odd",
     0,
     "delete  alice:/odd/#2\ntarn: Cannot be taken back: \"alice:/odd/what?\" was deleted, and nothing keeps "
     "it "
     "(`tarn rm --keep` would have).\n"},
    // Paths in the folder of a profile
    {"tarn profile add -q ph \"$TARN_ENDPOINT\" --folder /photos && export TARN_PROFILE=ph && tarn put -q "
     "photos/b.JPG rel && tarn find rel --name 'r*' && tarn ls && tarn rm rel /photos/2024/none 'r*'; echo "
     "$?",
     0, "/photos/rel\n2024/\nb.JPG\nrel\nö.txt\n8\n"},
    // Words people try
    {"tarn upload a /b 2>&1 | grep -o 'tarn put'", 0, "tarn put\n"},
    // With a file that is no library, but is called as one
    {"touch libcurl.so.4 && tarn version && rm libcurl.so.4 && tarn help cp | head -n 1", 0,
     "tarn 0.1.0\nCopy files and folders within the service\n"},
    {"tarn help nope", 2, ""},
    {"tarn --help > /dev/full", 1, ""},
    {"tarn -q --log-file /dev/full ls /none 2>&1", 3,
     "tarn: The log /dev/full is not complete: a line could not be written.\n"
     "tarn: \"/none\": File not found. Check the path with `tarn ls`.\n"},
    {"tarn --json 2>&1", 2,
     "{\"code\":2,\"error\":\"Name a verb; see `tarn --help`.\",\"kind\":\"usage\"}\n"},
    // What is in the way is named, with what helps
    {"mkdir way && EDITOR='rm $1; mkdir' tarn edit /way 2>&1 | grep -o '/way: Is a directory'; tarn apply "
     "way 2>&1; "
     "tarn replay --endpoint http://127.0.0.1:1 way 2>&1; tarn --record way ls 2>&1",
     6,
     "/way: Is a directory\ntarn: Could not read way: Is a directory.\ntarn: Could not read way: Is a "
     "directory.\n"
     "tarn: Could not write the recording way: Is a directory.\n"},
    {"tarn -q put photos/b.JPG /way && tarn mkdir /way 2>&1; tarn rm -q /way; tarn ls /photos/2024 /none "
     "2>&1 "
     ">/dev/null | tail -n 1",
     0, "tarn: \"/way\" is a file; a folder cannot replace it.\ntarn: 1 item could not be listed; 1 was.\n"},
    {"mkdir -p in/sub && touch in/b in/sub/c && ln -s b in/link && tarn -q mkdir /in && tarn -q put "
     "photos/b.JPG "
     "/in/sub; tarn put -rf in / 2>&1; tarn rm -q /in/sub; tarn -q put -r in / 2>&1; tarn put -r in / 2>&1; "
     "tarn -q rm "
     "-r /in",
     0,
     "tarn: Skipped in/link: symbolic links are not followed.\n"
     "tarn: Stored 1 file (0 B) in \"/in\".\n"
     "tarn: \"/in/sub\": It is a file; a folder cannot replace it. 1 item could not be stored, and 1 was not "
     "tried; 1 "
     "was.\n"
     "tarn: Skipped in/link: symbolic links are not followed.\n"
     "tarn: Skipped in/link: symbolic links are not followed.\n"
     "tarn: Nothing to do in \"/in\": 2 files were there already.\n"},
    {"mkdir twins && echo 1 >twins/x && tarn -q mkdir /da /db && tarn -q put twins/x /da && tarn -q put "
     "photos/b.JPG "
     "/db/x && tarn get -f /da/x /db/x twins 2>&1; tarn put -f twins/x photos/b.JPG twins/x /da 2>&1; cat "
     "twins/x; "
     "tarn -q put twins/x /da/.x.tarn-part && tarn get /da/.x.tarn-part twins 2>&1; tarn -q rm -r /da /db",
     0,
     "tarn: \"/db/x\": twins/x is the place of \"/da/x\" already.\n"
     "tarn: 1 item could not be fetched; 0 were.\n"
     "tarn: twins/x: \"/da/x\" is the place of twins/x already.\n"
     "tarn: Stored 1 file (2.0 KiB) in \"/da\"; 1 file was there already.\n"
     "tarn: 1 item could not be stored; 1 was.\n"
     "1\n"
     "tarn: \"/da/.x.tarn-part\": Files with such names are parts of what is being fetched, and removed "
     "again; fetch it "
     "under another name.\n"},
    {"ln -s loop loop && tarn get /photos/b.JPG loop 2>&1; rm loop; tarn put - /closed 2>&1 <&-", 1,
     "tarn: Could not use loop: Too many levels of symbolic links.\n"
     "tarn: Could not read standard input: Bad file descriptor.\n"},
    {"cp photos/b.JPG b && tarn -q put b /b && for it in 'put b' 'put b b' 'put -' 'put -r photos' mkdir 'cp "
     "/photos/b.JPG' "
     "'mv /photos/b.JPG' edit; do EDITOR='cp b' TMPDIR=$PWD/way tarn $it /b/c/d 2>&1 <b | "
     "grep -c '\"/b\" is a file; nothing can be stored below it'; done; tarn rm /b; rm -r way/*",
     0, "1\n1\n1\n1\n1\n1\n1\n1\n"},
    {"mkfifo way/fifo && tarn --record way/fifo ls 2>&1; tarn sync --plan way/fifo photos /way 2>&1 | sed "
     "s,/.*way/,way/,; rm "
     "way/fifo",
     0,
     "tarn: Could not write way/fifo: it is a device, a pipe or a socket. Name a file.\n"
     "tarn: Could not write way/fifo: it is a device, a pipe or a socket. Name a file.\n"},
    {"mkfifo way/fifo && tarn -q mkdir /way && tarn check way /way 2>&1; tarn rm -r /way", 0,
     "tarn: 1 item, which is neither file nor folder, was not compared.\n"
     "tarn: No differences: 0 files are the same.\n"},
};

TEST(Verbs, DoWhatIsTyped)
{
    TarndProcess service{{"--verbose"}};
    service.start();
    Shell alice;
    alice.logIn(service, "alice");
    ASSERT_EQ(alice.run(tree).exitCode, 0);
    const auto listings = [&] {
        std::size_t count = 0;
        const auto log = service.errors();
        for (auto at = log.find("GET /service/v1/folders"); at != std::string::npos;
             at = log.find("GET /service/v1/folders", at + 1))
            ++count;
        return count;
    };
    const auto before = listings();
    EXPECT_EQ(alice.run("tarn find /photos >all && tarn du -s && tarn check photos /photos").exitCode, 0);
    EXPECT_EQ(listings() - before, 2u + 3 + 2); // one for each folder, whoever asks
    for (const auto& row : rows) {
        const auto result = alice.run(row.typed);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.typed << '\n' << result.err;
        EXPECT_EQ(result.out, row.output) << row.typed << '\n' << result.err;
    }
}

/// Each shell's completion of $@, one candidate a line, in the words of that shell.
constexpr std::pair<const char*, const char*> shells[] = {
    {"bash", "bash -c '. <(tarn completion bash); COMP_WORDS=(tarn \"$@\"); COMP_CWORD=$#; _tarn; "
             "printf \"%s\\n\" \"${COMPREPLY[@]}\"' bash \"$@\""},
    {"zsh", "zsh -f -c 'compdef() { }; _files() { print :files }; "
            "compadd() { while [[ $1 != -- ]]; do shift; done; shift; print -l -- \"$@\" }; "
            ". <(tarn completion zsh); words=(tarn \"$@\"); CURRENT=$#words; PREFIX=$words[-1]; _tarn' zsh "
            "\"$@\""},
    {"fish", "fish -c 'tarn completion fish | source; complete -C \"tarn $argv\"' -- \"$@\" | cut -f 1"},
};

TEST(Completion, KnowsVerbsOptionsValuesAndRemotePathsInThreeShells)
{
    TarndProcess service;
    service.start();
    Shell alice;
    alice.logIn(service, "alice");
    ASSERT_EQ(alice.run(tree).exitCode, 0);

    const struct {
        std::vector<std::string> words;
        std::string completed;
    } lines[] = {
        {{"ver"}, "version\nversions\n"},
        {{"find", "--ty"}, "--type\n"},
        {{"find", "--type", ""}, "d\nf\n"},
        {{"ls", "/pho"}, "/photos/\n"},
        {{"-q", "rm", "/photos/2"}, "/photos/2024/\n"},
        {{"get", "/photos/2024/c"}, "/photos/2024/c.jpg\n"},
        {{"cat", "alice:/ph"}, "alice:/photos/\n"},
        {{"ls", "/none/"}, ""},
    };

    for (const auto& [shell, asks] : shells)
        for (const auto& [words, completed] : lines) {
            const auto result = alice.run("{ " + std::string(asks) + "; } | grep . | LC_ALL=C sort", words);
            const auto colon = std::string(shell) == "bash" && completed.starts_with("alice:") ? 6 : 0;
            EXPECT_EQ(result.out, completed.substr(colon)) << shell << ' ' << words.back() << '\n'
                                                           << result.err;
        }
    const auto manual = alice.run(
        "mkdir man && tarn man --into man && ls man/tarn-*.1 | wc -l && "
        "tarn --help | sed -n '/^Verbs/,/^$/p' | grep -c '^  [a-z]' && grep -c 'tarn.-put' man/tarn.1 "
        "&& for page in man/*; do groff -k -man -Tutf8 -ww $page >shown || exit; done");
    EXPECT_EQ(manual.err, "");
    const auto pages = manual.out.substr(0, manual.out.find('\n'));
    EXPECT_EQ(manual.out, pages + "\n" + pages + "\n1\n") << "a page for each verb";
}

TEST(Edit, StoresWhatChangedAndLosesNoText)
{
    struct Row {
        const char* editor;
        const char* file;
        int exitCode;
        const char* stored;    ///< in the end
        const char* kept = ""; ///< in the draft
    };

    TarndProcess service;
    service.start();
    Shell alice;
    alice.logIn(service, "alice");
    alice.set("TMPDIR", alice.work() / "tmp");
    ASSERT_EQ(alice.run("mkdir tmp; echo old | tarn put - '/it s.md'; echo theirs > theirs").exitCode, 0);
    const Row rows[] = {
        {"true", "/it s.md", 0, "old\n"},
        {"sed -i s/old/new/", "/it s.md", 0, "new\n"},
        {"sh -c 'echo mine >\"$1\"; kill $$' x", "/it s.md", 1, "new\n", "mine\n"},
        {"sh -c 'rm \"$1\"' x", "/it s.md", 0, "new\n"},
        {"sh -c 'echo mine >\"$1\"; tarn put -f theirs \"/it s.md\"' x", "/it s.md", 6, "theirs\n", "mine\n"},
        {"sh -c 'printf made >\"$1\"' x", "/made", 0, "made"},
        {"true", "/none", 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.editor);
        alice.set("EDITOR", row.editor);
        const auto result = alice.run("tarn edit \"$1\"", {row.file});
        EXPECT_EQ(result.exitCode, row.exitCode) << result.err;
        EXPECT_EQ(alice.run("tarn cat \"$1\" 2>/dev/null", {row.file}).out, row.stored);
        EXPECT_EQ(alice.run("cat tmp/*/* 2>/dev/null; rm -rf tmp/*").out, row.kept);
        EXPECT_EQ(result.err.find("Your text is in") != std::string::npos, *row.kept != '\0');
    }
    EXPECT_EQ(alice.run("tarn --json versions '/it s.md' | grep -o label | wc -l").out, "2\n");
}

} // namespace
} // namespace tarncli::test
