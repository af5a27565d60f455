// Two folders that are made alike again and again, whatever happens to both in between and whenever it is broken off:
// what a person changed is never lost, and what is the same is left alone.
#include "tarnhost/Tarn.h"
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <future>
#include <iostream>
#include <random>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using connector::host::Tarn;
using tarnd::test::TarndProcess;

/// Files with their contents; folders end with '/'.
using Tree = std::map<std::string, std::string>;

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

struct Row {
    const char* typed;
    int exitCode;
    const char* output; ///< of both streams, exactly
};

constexpr Row rows[] = {
    {"tarn sync t /", 0, "tarn: Stored 3 files and 3 folders (9 B) in \"alice:/t\"; 0 files are the same.\n"},
    {"tarn sync t/ alice:/t", 0, "tarn: Nothing to do in \"alice:/t\": 3 files are the same.\n"},
    {"tarn sync a b", 2, nullptr},
    {"tarn sync /a /b", 2, nullptr},
    {"tarn sync none /", 3, nullptr},
    {"tarn sync /none .", 3, nullptr},
    // Links and names are told once; what they hide is left alone.
    {"ln -s a t/l && ln -s a t/m && touch t/x? t/y? t/$(printf 'z\\302\\205') && tarn sync "
     "--delete t /",
     1,
     "tarn: Left out 2 items, the first x?: The service cannot be asked for names with '?'; choose another "
     "name, or use --encode-names.\n"
     "tarn: Left out z\\u{85}: The service takes no names with control characters; choose another name, or "
     "use --encode-names.\n"
     "tarn: Left out 2 items, the first l: symbolic links are not followed\n"
     "tarn: 3 items could not be stored; 0 were.\n"},
    {"rm t/[lmxyz]*", 0, ""},
    // A plan says what it does, is done once, and not when anything has changed since.
    {"echo new >t/n && rm t/d/c && tarn sync -q --plan p --delete t / && tarn ls /t", 0,
     "create  4 B  n\ndelete       d/c\nd/\ne/\na\nb\n"},
    {"touch t/n && tarn apply p", 6,
     "tarn: Changed since the plan was made: n in the source. Nothing was done; make another plan with "
     "`tarn sync --plan`.\n"},
    {"tarn sync -q --plan p --delete t /; echo there | tarn -q put -f - /t/d/c; tarn apply p", 6,
     "create  4 B  n\ndelete       d/c\ntarn: Changed since the plan was made: d/c in the target. Nothing "
     "was done; "
     "make another plan with `tarn sync --plan`.\n"},
    {"sed s/alice:/bob:/ p >q; tarn apply q; sed 's|\"d/c\"|\"../c\"|' p >q; tarn apply q 2>/dev/null", 2,
     nullptr},
    // Changed where the plan would delete: neither deleted nor replaced, unless that is said.
    {"tarn sync -q --delete t /", 8,
     "tarn: d/c: gone from the source, and changed in the target; left as it is. 1 item could not be "
     "stored; 1 was.\n"},
    {"tarn sync -q --delete --max-delete 0 -f t /", 1,
     "tarn: 1 files and folders would be deleted, more than --max-delete 0; nothing was done.\n"},
    {"tarn sync -qf --delete t / && tarn check t /t", 0, "tarn: No differences: 3 files are the same.\n"},
    {"echo 2 >t/a && echo 3 | tarn -q put -f - /t/a && tarn sync t / ; tarn cat /t/a", 0, nullptr},
    {"tarn sync -q --new-version --force t / && tarn cat /t/a && tarn cat --version 1 /t/a", 0, "2\n3\n"},
    // What is left out is left out on both sides, and not guessed.
    {"for make in mkdir mkfifo 'ln -s none'; do $make t/.tarnignore && timeout 20 tarn sync -n --delete t / "
     "2>/dev/null; echo $?; rm -r t/.tarnignore; done",
     0, "6\n6\n3\n"},
    {"echo 1 >t/skip.tmp && echo 1 >t/keep.tmp && mkdir t/e/cache && echo 1 >t/e/cache/x && "
     "printf '# ours\\n*.tmp\\n!keep.tmp\\ncache/\\n' >t/.tarnignore && tarn sync -q t / && tarn find /t "
     "-type f",
     0, "/t/a\n/t/b\n/t/keep.tmp\n/t/n\n"},
    {"echo 1 | tarn -q put - /t/skip.tmp && tarn sync -q --delete t / && tarn ls /t/skip.tmp", 0,
     "skip.tmp\n"},
    {"echo 1 >t/e/p.jpg && echo 1 >t/no && tarn sync --include '*.jpg' --exclude '/b' -n t /", 0,
     "create  2 B  e/p.jpg\ntarn: 1 step to do in \"alice:/t\", 0 conflicts; 1 file is the same.\n"},
    {"mkdir -p w/a && tarn sync --force w/ /t", 6,
     "tarn: a: a folder in the source, a file in the target; left as it is.\n"},
    // Names that are no text: two folders are two, and a plan tells what it leaves out.
    {"a=$(printf '\\377') b=$(printf '\\376') && mkdir $a $b && echo 1 >$a/x && tarn sync -q $a/ /raw && "
     "echo 2 >$b/x && tarn sync -q $b/ /raw 2>&- || echo $?; touch $a/$b && mv $a raw && "
     "tarn sync -q --plan p raw/ /raw && tarn apply -q p && tarn sync raw/ /raw",
     1,
     "6\ntarn: Left out \\xfe: The name is not valid UTF-8.\n"
     "tarn: \\xfe was left out: The name is not valid UTF-8.\n"},
    // The other way.
    {"tarn sync -q /t/ back && ls -A back && tarn sync -q /t copy && ls -A copy", 0,
     "a\nb\nd\ne\nkeep.tmp\nn\nskip.tmp\nt\n"},
    {"tarn sync --delete /t/ back", 0, "tarn: Nothing to do in \"/WORK/back\": 5 files are the same.\n"},
};

TEST(Sync, DoesWhatIsTyped)
{
    TarndProcess service{{"--verbose"}};
    service.start();
    Shell alice;
    alice.logIn(service, "alice");
    alice.write("t/a", "1\n");
    alice.write("t/b", "2\n");
    alice.write("t/d/c", "deep\n");
    fs::create_directories(alice.work() / "t/e");
    for (const auto& row : rows) {
        const auto result = alice.run("{ " + std::string(row.typed) + "; } 2>&1");
        EXPECT_EQ(result.exitCode, row.exitCode) << row.typed << '\n' << result.out;
        auto told = result.out;
        if (const auto at = told.find(alice.work().string()); at != std::string::npos)
            told.replace(at, alice.work().string().size(), "/WORK");
        EXPECT_EQ(told, row.output == nullptr ? told : row.output) << row.typed;
    }
    // Known to both: a listing for each of the three folders, and nothing else.
    alice.run("find t -exec touch -d '1 hour ago' {} + && tarn sync t / && tarn sync t /");
    const auto requests = [&] {
        service.terminate(); // by then all of them are in the log
        return count(service.errors(), " /service/v1/");
    };
    const auto before = requests();
    service.start(service.port());
    EXPECT_EQ(alice.tarn({"sync", "t", "/"}).exitCode, 0);
    EXPECT_EQ(requests() - before, 3u);
}

void erase(Tree& tree, const std::string& place)
{
    tree.erase(place);
    std::erase_if(tree, [&](const auto& entry) { return entry.first.starts_with(place + "/"); });
}

void write(Tree& tree, const std::string& place, const std::string& content)
{
    for (auto slash = place.find('/'); slash != std::string::npos; slash = place.find('/', slash + 1)) {
        tree.erase(place.substr(0, slash)); // a file, where a folder has to be
        tree[place.substr(0, slash + 1)];
    }
    erase(tree, place);
    tree[place] = content;
}

/// What a synchronisation makes of two trees and of what both have had in common.
struct Model {
    Tree source, target;
    Tree known; ///< files

    /// A file on one side and a folder on the other, at the place or above it.
    bool isBlocked(std::string place) const
    {
        for (;; place.resize(place.rfind('/'))) {
            if (place.ends_with('/')) place.pop_back();
            if ((source.contains(place) && target.contains(place + "/")) ||
                (target.contains(place) && source.contains(place + "/")))
                return true;
            if (place.find('/') == std::string::npos) return false;
        }
    }

    /// @return whether there are conflicts
    bool synchronise(bool removes, bool forces)
    {
        bool conflicts = false;
        auto result = target;
        auto common = known;
        auto places = source;
        places.insert(target.begin(), target.end());
        std::erase_if(common, [&](const auto& file) { return !places.contains(file.first); });
        for (const auto& [place, unused] : places) {
            const auto was = known.find(place);
            const auto from = source.find(place);
            const auto to = target.find(place);
            const bool isFolder = place.ends_with('/');
            const bool isKnown = was != known.end() && to != target.end() && was->second == to->second;
            if (isBlocked(place)) {
                conflicts = true;
            } else if (from != source.end() &&
                       (to == target.end() || from->second == to->second || isKnown || forces)) {
                result[place] = from->second;
                if (!isFolder) common[place] = from->second;
            } else if (from != source.end()) {
                conflicts = true;
            } else if (removes && !isFolder) {
                if (was != known.end() && !isKnown && !forces) {
                    conflicts = true;
                } else {
                    result.erase(place);
                    common.erase(place);
                }
            }
        }
        if (removes) // folders in which nothing stays, the deepest first
            for (auto folder = target.rbegin(); folder != target.rend(); ++folder) {
                const auto& place = folder->first;
                const auto next = result.upper_bound(place);
                if (place.ends_with('/') && !source.contains(place) && !isBlocked(place) &&
                    (next == result.end() || !next->first.starts_with(place)))
                    result.erase(place);
            }
        target = result;
        known = common;
        return conflicts;
    }
};

/// The folder here, and the one in the service, made what a test wants by as few changes as a person would make.
class Place {
public:
    virtual ~Place() = default;
    virtual Tree read() = 0;

    void become(const Tree& wanted)
    {
        const auto now = read();
        for (auto old = now.rbegin(); old != now.rend(); ++old)
            if (!wanted.contains(old->first)) remove(old->first);
        for (const auto& [place, content] : wanted)
            if (const auto old = now.find(place); old == now.end() || old->second != content)
                place.ends_with('/') ? makeFolder(place) : write(place, content);
    }

private:
    virtual void remove(const std::string& place) = 0;
    virtual void makeFolder(const std::string& place) = 0;
    virtual void write(const std::string& place, const std::string& content) = 0;
};

class Here : public Place {
public:
    explicit Here(const Shell& owner) : shell(owner) { fs::create_directory(shell.work() / "t"); }

    Tree read() override { return contentsOf(shell.work() / "t"); }

private:
    void remove(const std::string& place) override { fs::remove(shell.work() / "t" / place); }

    void makeFolder(const std::string& place) override { fs::create_directory(shell.work() / "t" / place); }

    /// Every other one long ago, so that its time is told apart from all others.
    void write(const std::string& place, const std::string& content) override
    {
        const auto file = fs::path("t") / place;
        shell.write(file, content);
        if (++writes % 2 == 0)
            fs::last_write_time(shell.work() / file, fs::file_time_type::clock::now() -
                                                         std::chrono::hours(24) +
                                                         std::chrono::seconds(writes));
    }

    const Shell& shell;
    int writes = 0;
};

class There : public Place {
public:
    explicit There(Tarn& session) : tarn(session) { tarn.makeFolder("/t"); }

    Tree read() override
    {
        Tree tree;
        add(tree, "");
        return tree;
    }

private:
    void add(Tree& tree, const std::string& above)
    {
        for (const auto& entry : tarn.list(pathOf(above)))
            if (!entry.isFolder)
                tree[above + entry.name] = tarn.read(pathOf(above + entry.name));
            else if (tree[above + entry.name + "/"].empty())
                add(tree, above + entry.name + "/");
    }

    static std::string pathOf(const std::string& place)
    {
        auto path = "/t/" + place;
        if (path.ends_with('/')) path.pop_back();
        return path;
    }

    void remove(const std::string& place) override
    {
        place.ends_with('/') ? tarn.removeFolder(pathOf(place)) : tarn.remove(pathOf(place));
    }

    void makeFolder(const std::string& place) override { tarn.makeFolder(pathOf(place)); }

    void write(const std::string& place, const std::string& content) override
    {
        tarn.write(pathOf(place), content);
    }

    Tarn& tarn;
};

/// `rounds` of changes and synchronisations; every third is broken off, and done again.
void compareWithModel(bool isUp, unsigned seed, int rounds)
{
    std::mt19937 random(seed);
    const auto below = [&](std::size_t limit) { return random() % limit; };
    TarndProcess service;
    service.start();
    Shell alice;
    Tarn tarn(service.url(), {"alice", alice.logIn(service, "alice")});
    Here here(alice);
    There there(tarn);
    Place& source = isUp ? static_cast<Place&>(here) : there;
    Place& target = isUp ? static_cast<Place&>(there) : here;
    const char* places[] = {"a", "b", "a.b", "d", "d/a", "d/b", "d/e/a", "e/f", "e/f/a"};
    const char* contents[] = {"", "x", "y", "zz"};
    Model model;
    for (int round = 0; round < rounds; ++round) {
        for (auto* tree : {&model.source, &model.target})
            for (auto edits = below(4); edits > 0; --edits) {
                const auto* place = places[below(std::size(places))];
                below(3) == 0 ? erase(*tree, place)
                              : write(*tree, place, contents[below(std::size(contents))]);
            }
        source.become(model.source);
        target.become(model.target);
        const bool removes = below(2) == 0;
        const bool forces = below(4) == 0;
        const std::string what =
            std::string(removes ? "--delete " : "") + (forces ? "--force " : "") + (isUp ? "t/ /t" : "/t/ t");
        SCOPED_TRACE("round " + std::to_string(round) + ": tarn sync " + what);
        const auto pause = std::to_string(static_cast<double>(below(80)) / 1000);
        if (round % 6 == 2) {
            alice.run("tarn sync " + what + " & sleep " + pause + "; kill -9 $!; wait");
        } else if (round % 6 == 5) {
            auto running = std::async(std::launch::async, [&] { return alice.run("tarn sync " + what); });
            std::this_thread::sleep_for(std::chrono::milliseconds(below(80)));
            const auto port = service.port();
            service.kill();
            service.start(port);
            running.get();
        }
        const bool planned = below(2) == 0;
        const auto result =
            planned ? alice.run("tarn sync --plan p " + what + "; code=$?; tarn apply p && exit $code")
                    : alice.run("tarn sync " + what);
        const bool conflicts = model.synchronise(removes, forces);
        EXPECT_EQ(result.exitCode != 0, conflicts) << result.out << result.err;
        EXPECT_EQ(source.read(), model.source) << result.err;
        ASSERT_EQ(target.read(), model.target) << result.err;
    }
}

TEST(Sync, EqualsItsModelWhereverItIsBrokenOff)
{
    const char* given = std::getenv("TARN_TEST_SEED");
    const char* rounds = std::getenv("TARN_TEST_ROUNDS");
    const auto seed =
        given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    std::cout << "TARN_TEST_SEED=" << seed << std::endl;
    for (const bool isUp : {true, false})
        compareWithModel(isUp, seed, rounds ? std::atoi(rounds) : 12);
}

} // namespace
} // namespace tarncli::test
