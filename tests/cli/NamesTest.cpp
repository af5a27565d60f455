// What the user may write as a path or an endpoint: a slip must be told, never sent as something else.
#include "cli/remote/RemotePath.h"
#include "cli/service/Endpoint.h"
#include "cli/terminal/Failure.h"

#include <gmock/gmock.h>

namespace tarncli {
namespace {

using testing::HasSubstr;

/// The sentence that `action` fails with; checks that it is a usage error.
template <class Action>
std::string refusal(Action action)
{
    try {
        action();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::usage) << failure.what();
        return failure.what();
    }
    return "(accepted)";
}

TEST(RemotePath, TellsBucketPathAndFolder)
{
    const auto own = RemotePath::parse("/a:b/c.txt");
    EXPECT_EQ(own.bucket, "");
    EXPECT_EQ(own.path, "/a:b/c.txt");
    EXPECT_EQ(own.name(), "c.txt");
    EXPECT_EQ(own.parent().path, "/a:b");
    const auto other = RemotePath::parse("alice:/docs/");
    EXPECT_EQ(other.bucket, "alice");
    EXPECT_EQ(other.path, "/docs");
    EXPECT_TRUE(other.asFolder);
    EXPECT_EQ(other.child("x").text(), "alice:/docs/x");
    EXPECT_EQ(other.parent().text(), "alice:/");
    EXPECT_TRUE(RemotePath::parse("bob:/").isRoot());
    EXPECT_EQ(RemotePath::parse("/").child("x").path, "/x");
}

TEST(RemotePath, RefusesWhatItWouldHaveToGuess)
{
    const std::pair<const char*, const char*> rows[] = {
        {"", "root folder is \"/\""},
        {"docs/a.txt", "did you mean \"/docs/a.txt\"?"},
        {"alice:docs", "did you mean \"alice:/docs\"?"},
        {"a/b:c", "did you mean \"/a/b:c\"?"},
        {"alice:", "did you mean \"alice:/\"?"},
        {":/a", "names no user"},
        {"/a//b", "empty name"},
        {"/a//", "empty name"},
        {"//", "empty name"},
        {"/a/./b", "\".\""},
        {"/../b", "\"..\""},
        {"/a\xff", "not valid UTF-8"},
    };
    for (const auto& [text, told] : rows)
        EXPECT_THAT(refusal([text = text] { RemotePath::parse(text); }), HasSubstr(told)) << text;
}

TEST(Endpoint, AcceptsOnlyWhatSurvivesInAUrl)
{
    EXPECT_EQ(checkedEndpoint("http://127.0.0.1:7070/"), "http://127.0.0.1:7070");
    EXPECT_EQ(checkedEndpoint("https://files.example.org/tarn//"), "https://files.example.org/tarn");
    for (const auto* bad : {"files.example.org", "ftp://h", "http://", "http:///x", "http://[::1]:80",
                            "http://a@h", "http://h?x", "http://h/#", "http://h:0", "http://h:99999",
                            "http://h:x", "http://h/a b", "http://h/%20", "HTTP//h"})
        EXPECT_THAT(refusal([bad] { checkedEndpoint(bad); }), HasSubstr("cannot be used")) << bad;
}

} // namespace
} // namespace tarncli
