// URLs as they are printed: what is escaped, what is joined how, and that building once gives the same bytes
// as parsing and printing for every parameter.
#include "tarn/protocol/ServiceRequest.h"

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace connector::tarn;

TEST(ServiceRequest, JoinsAResourceBelowTheServicePath)
{
    SessionRequest request;
    auto url = [&](const std::string& resource) {
        return makeSessionHttpRequest("https://h:1/base", "get", "/service/v1/x", resource, request)->url;
    };
    EXPECT_EQ(url(""), "https://h:1/base/service/v1/x?locale=en_US");
    EXPECT_EQ(url("id"), "https://h:1/base/service/v1/x/id?locale=en_US");
    EXPECT_EQ(url("/id"), "https://h:1/base/service/v1/x/id?locale=en_US");
    EXPECT_EQ(url("a b/\x01"), "https://h:1/base/service/v1/x/a%20b/%01?locale=en_US");
    EXPECT_THROW(makeSessionHttpRequest("http://h:port", "get", "/x", "", request), Poco::SyntaxException);
}

TEST(ServiceRequest, SendsTheSessionHeaderEvenWhenEmpty)
{
    SessionRequest request;
    request.clientString = "a&b=c";
    request.clientType = "t+u";
    auto http = makeSessionHttpRequest("http://h", "delete", "/x", "", request);
    EXPECT_EQ(http->url, "http://h/x?locale=en_US&clientString=a%26b%3Dc&clientType=t%2Bu");
    EXPECT_EQ(http->method, "delete");
    EXPECT_EQ(http->body, nullptr);
    ASSERT_EQ(http->headers.size(), 1u);
    EXPECT_EQ(http->headers.begin()->first, "x-qz-tarn-session-id");
    EXPECT_EQ(http->headers.begin()->second, "");
}

TEST(ServiceRequest, PrintsOnceWhatParsingEveryTimePrints)
{
    const std::vector<std::u16string> texts = {u"",    u"a b",   u"ä/ö?ü#", u"%41%",         u"a+b&c=d;e",
                                               u"//x", u"/../.", u"日本",   u"'\"<>\\^`{|}", u"100% & more"};
    SessionRequest request;
    request.clientString = "c 1";
    for (const auto& path : texts) {
        for (const auto& value : texts) {
            ServiceRequest once = pathRequest("http://h", "put", "/s", path, value, request);
            auto again = once.build();
            once.addText("first", value);
            once.addText("second", path);
            addUtf16QueryParameter(again, "first", value);
            addUtf16QueryParameter(again, "second", path);
            EXPECT_EQ(once.build()->url, again->url);
        }
    }
}

} // namespace
