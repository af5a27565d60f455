// A day of two people on one service, as they would type it: each step's exit code and output.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

namespace tarncli::test {
namespace {

using tarnd::test::TarndProcess;

struct Step {
    const char* who;
    const char* types;
    int exitCode;
    const char* output; ///< of standard output, exactly; null: does not matter
};

TEST(TwoPeople, ShareReadTakeBackLinkAndGoBackInTime)
{
    TarndProcess service;
    service.start();
    std::map<std::string, Shell> shells;
    for (const char* name : {"alice", "bob"})
        shells[name].logIn(service, name);
    const std::vector<Step> day = {
        {"alice", "mkdir plans && echo one > plans/a && echo two > 'plans/b c' && tarn put -r plans /", 0,
         ""},
        {"bob", "tarn cat alice:/plans/a", 3, ""},
        {"bob", "tarn shared", 0, ""},
        {"alice", "tarn put plans/a /private && tarn grant /plans nobody", 3, ""},
        {"alice", "tarn grant --pending /plans nobody >id && tarn grants /plans | grep -c PENDING", 0, "1\n"},
        {"alice", "tarn revoke $(cat id)", 0, ""},
        {"alice", "tarn grant /plans bob | wc -l", 0, "1\n"},
        {"bob", "tarn shared | awk '{print $1, $NF}'", 0, "USER PATH\nalice alice:/plans/\n"},
        {"bob", "tarn ls alice:/plans", 0, "a\nb c\n"},
        {"bob", "tarn get -r alice:/plans/ got && cat got/a 'got/b c'", 0, "one\ntwo\n"},
        {"bob", "echo mine > a; tarn put -f a alice:/plans/a", 5, ""},
        {"bob",
         "for it in 'put -f a alice:/plans/a' 'rm -r alice:/plans'; do tarn $it 2>&1; done | "
         "grep -c ' bob may read it: alice shares /plans\\.$'",
         0, "2\n"},
        {"bob", "tarn rm -r alice:/plans", 5, ""},
        {"bob", "tarn mv alice:/plans/a alice:/plans/x", 5, ""},
        {"bob", "tarn grant alice:/plans carol", 5, ""},
        {"bob",
         "{ tarn put a alice:/plans/b; EDITOR='cp a' tarn edit alice:/plans/b; } 2>&1 | "
         "grep -c 'your own storage only'",
         0, "2\n"},
        {"bob", "tarn ls", 0, ""}, // and it did not land there instead
        {"bob", "tarn versions alice:/plans/a", 2, ""},
        {"bob", "tarn cat alice:/private", 3, ""},
        {"alice", "tarn revoke /plans bob", 0, ""},
        {"alice", "tarn revoke /plans bob", 3, ""},
        {"alice", "tarn grants", 0, ""},
        {"bob", "tarn cat alice:/plans/a", 3, ""},
        {"bob", "tarn ls alice:/plans", 3, ""},
        {"bob", "tarn shared", 0, ""},
        {"alice", "curl -fsS \"$(tarn link /plans/a)\"", 0, "one\n"},
        {"alice", "test \"$(tarn link /plans/a)\" = \"$(tarn link /plans/a)\"", 0, ""},
        {"alice", "curl -fsS \"$(tarn link /plans)\" | grep -c 'b c'", 0, nullptr},
        {"alice", "tarn link --expire 7d /plans 2>&1 >ends | grep -c 'whole folder\\|this machine\\|ends 2'",
         0, "3\n"},
        {"alice", "tarn link --expire 7x /plans || tarn link --list /plans || tarn link --qr --list", 2, ""},
        {"alice", "tarn link --list | awk '{print $2, $NF}' | sed 's/20.*-[^ ]*/DAY/'", 0,
         "ENDS PATH\nnever /plans/\nDAY /plans/\nnever /plans/a\n"},
        {"alice", "curl -fsS \"$(cat ends)/a\" && tarn link --revoke \"$(cat ends)\"", 0, "one\n"},
        {"alice", "curl -s -o page -w '%{http_code}' \"$(cat ends)/a\"", 0, "404"},
        {"bob", "tarn link --list; tarn link --revoke alice:/plans", 3, ""},
        {"alice", "tarn link --revoke /plans && tarn link --revoke /plans", 3, ""},
        {"alice", "tarn link --qr /plans/a | tail -n +2 | awk 'NR == 1 {print (length($0) > 30), NF}'", 0,
         "1 1\n"},
        {"alice", "echo three > plans/a && tarn put plans/a /plans/a", 6, ""},
        {"alice", "tarn put --new-version plans/a /plans/a && tarn cat /plans/a", 0, "three\n"},
        {"alice", "tarn versions /plans/a | awk '{print $1}'", 0, "VERSION\n2\n1\n"},
        {"alice", "tarn cat --version 1 /plans/a", 0, "one\n"},
        {"alice", "tarn restore /plans/a 7", 3, ""},
        {"alice", "tarn restore /plans/a 1 && tarn cat /plans/a", 0, "one\n"},
        {"alice", "tarn restore --as-new /plans/a 2 && tarn cat /plans/a", 0, "three\n"},
        {"alice", "tarn link /plans/a > link && curl -fsS \"$(cat link)\"", 0, "three\n"},
        {"alice", "tarn rm -r /plans && curl -s -o page -w '%{http_code}' \"$(cat link)\"", 0, "404"},
    };
    for (const auto& step : day) {
        const auto result = shells[step.who].run(step.types);
        EXPECT_EQ(result.exitCode, step.exitCode) << step.who << ": " << step.types << '\n' << result.err;
        if (step.output) {
            EXPECT_EQ(result.out, step.output) << step.who << ": " << step.types;
        }
    }
}

} // namespace
} // namespace tarncli::test
