// Two users: what one may see and change of the other's, and what cannot be done at all.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

namespace tarncli::test {
namespace {

using tarnd::test::TarndProcess;
using testing::HasSubstr;

TEST(Sharing, LetsOthersReadAndNothingElse)
{
    TarndProcess service;
    service.start();
    Shell alice;
    Shell bob;
    alice.logIn(service, "alice");
    bob.logIn(service, "bob");
    alice.write("a", "secret");
    bob.write("b", "B");
    ASSERT_EQ(alice.run("tarn mkdir /docs && tarn put a /docs/a && tarn put a /private").exitCode, 0);

    EXPECT_EQ(bob.tarn({"cat", "alice:/docs/a"}).exitCode, 3);
    EXPECT_EQ(alice.tarn({"grant", "/docs", "nobody"}).exitCode, 3);
    EXPECT_EQ(alice.tarn({"grant", "--pending", "/docs", "nobody"}).exitCode, 0);
    EXPECT_EQ(alice.tarn({"grant", "/docs", "bob"}).exitCode, 0);
    EXPECT_THAT(alice.tarn({"grants", "/docs"}).out, testing::AllOf(HasSubstr("bob"), HasSubstr("PENDING")));
    EXPECT_THAT(bob.tarn({"shared"}).out, HasSubstr("alice:/docs/\n"));
    EXPECT_EQ(bob.tarn({"cat", "alice:/docs/a"}).out, "secret");
    EXPECT_EQ(bob.tarn({"get", "-r", "alice:/docs", "."}).exitCode, 0);
    EXPECT_EQ(bob.read("docs/a"), "secret");

    EXPECT_EQ(bob.tarn({"cat", "alice:/private"}).exitCode, 3);
    EXPECT_EQ(bob.tarn({"rm", "alice:/docs/a"}).exitCode, 5);
    EXPECT_EQ(bob.tarn({"put", "-f", "b", "alice:/docs/a"}).exitCode, 5);
    const auto made = bob.tarn({"put", "b", "alice:/docs/b"});
    EXPECT_EQ(made.exitCode, 5);
    EXPECT_THAT(made.err, HasSubstr("your own storage only"));
    EXPECT_EQ(bob.tarn({"ls"}).out, ""); // and it did not land there instead
    EXPECT_EQ(bob.tarn({"versions", "alice:/docs/a"}).exitCode, 2);

    EXPECT_EQ(alice.tarn({"revoke", "/docs", "bob"}).exitCode, 0);
    EXPECT_EQ(alice.tarn({"revoke", "/docs", "bob"}).exitCode, 3);
    EXPECT_EQ(alice.run("tarn revoke $(tarn grants /docs | awk '/nobody/ {print $1}')").exitCode, 0);
    EXPECT_EQ(alice.tarn({"grants"}).out, "");
    EXPECT_EQ(bob.tarn({"cat", "alice:/docs/a"}).exitCode, 3);
    EXPECT_THAT(alice.tarn({"link", "/docs/a"}).out, HasSubstr(service.url() + "/"));
}

} // namespace
} // namespace tarncli::test
