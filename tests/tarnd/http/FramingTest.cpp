// Requests whose end or meaning is in doubt: taken the wrong way, one request hides in another, or half a
// file is stored as a whole one.
#include "tests/tarnd/http/ServiceTest.h"

namespace tarnd::test {
namespace {

class Framing : public ServiceTest {
protected:
    Framing() : ServiceTest({"--idle-timeout", "2"}) {}

    std::string head(std::string_view line, std::string_view headers)
    {
        return std::string(line) + " HTTP/1.1\r\nHost: tarn\r\nx-qz-tarn-session-id: " + alice + "\r\n" +
               std::string(headers) + "\r\n";
    }

    std::string putHead(std::string_view headers)
    {
        return head("PUT /service/v1/files/f?createMode=CREATE", headers);
    }

    void expectNothingStored()
    {
        EXPECT_EQ(outcomeOf(asAlice("GET", "/service/v1/filesystem/f")), "404 The path does not exist.");
    }
};

TEST_F(Framing, RefusesWhatCanBeReadInTwoWays)
{
    struct Case {
        std::string name, request, error;
    };

    const std::string chunks = "3\r\nabc\r\n0\r\n\r\n";
    const auto trailing = [&](const std::string& fields) {
        return putHead("Transfer-Encoding: chunked\r\n") + "3\r\nabc\r\n0\r\n" + fields + "\r\n";
    };
    const std::string control = "400 The value of a header may hold no control character.";
    std::string parameters;
    for (int i = 0; i < 2000; ++i)
        parameters += "p" + std::to_string(i) + "=1&";
    const Case cases[] = {
        {"same length twice", putHead("Content-Length: 3\r\nContent-Length: 3\r\n") + "abc",
         "400 The header Content-Length may be given only once."},
        {"two lengths", putHead("Content-Length: 3\r\ncontent-length: 5\r\n") + "abc",
         "400 The header Content-Length may be given only once."},
        {"length and chunks", putHead("Content-Length: 3\r\nTransfer-Encoding: chunked\r\n") + chunks,
         "400 A request has either Content-Length or Transfer-Encoding, not both."},
        {"unknown encoding", putHead("Transfer-Encoding: gzip, chunked\r\n") + chunks,
         "400 The only Transfer-Encoding understood is chunked."},
        {"blank behind the encoding", putHead("Transfer-Encoding: chunked \t\r\n") + chunks,
         "400 The only Transfer-Encoding understood is chunked."},
        {"chunks of HTTP/1.0",
         "PUT /service/v1/files/f HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks,
         "400 HTTP/1.0 has no Transfer-Encoding."},
        {"a part", putHead("Content-Range: bytes 7-9/10\r\nContent-Length: 3\r\n") + "abc",
         "400 A part of a file cannot be stored, only the whole; nothing was changed."},
        {"a time",
         putHead("If-Unmodified-Since: Mon, 23 Nov 2026 09:00:00 GMT\r\nContent-Length: 3\r\n") + "abc",
         "400 A change cannot depend on the header If-Unmodified-Since; nothing was changed."},
        {"a tag of a folder", head("DELETE /service/v1/folders/f", "If-Match: \"x\"\r\n"),
         "400 A change cannot depend on the header If-Match; nothing was changed."},
        {"a tag of a move", head("PUT /service/v1/filesystem/g?targetPath=/f", "If-None-Match: *\r\n"),
         "400 A change cannot depend on the header If-None-Match; nothing was changed."},
        {"blank in a header name", putHead("Content-Length : 3\r\n") + "abc",
         "400 The name of a header may hold no white space."},
        {"no length", putHead(""),
         "411 An upload must tell its length in the header Content-Length, or come in chunks."},
        {"two sessions", putHead("x-qz-tarn-session-id: other\r\nContent-Length: 3\r\n") + "abc",
         "400 The header x-qz-tarn-session-id may be given only once."},
        {"two hosts", head("GET /service/v1/ping", "Host: other\r\n"),
         "400 The header Host may be given only once."},
        {"no host", "GET /service/v1/ping HTTP/1.1\r\n\r\n", "400 The header Host is missing."},
        {"NUL in a header", head("GET /service/v1/ping", "a: b" + std::string("\0c\r\n", 4)),
         "400 The value of a header may hold no control character."},
        {"NUL at the end", head("GET /service/v1/ping", "a: b" + std::string("\0\r\n", 3)),
         "400 The value of a header may hold no control character."},
        {"NUL in a trailer", trailing(std::string("a: b\0c\r\n", 8)), control},
        {"a trailer in two lines", trailing("a: b\r\n c\r\n"), control},
        {"blank in the name of a trailer", trailing("a : b\r\n"),
         "400 The name of a header may hold no white space."},
        {"NUL in the path", head(std::string("GET /service/v1/ping\0a", 22), ""),
         "400 The address of the request holds characters that must be percent-encoded."},
        {"2000 parameters", head("GET /service/v1/ping?" + parameters, ""),
         "400 The request has too many parameters."},
        {"control characters in a name", head("GET /service/v1/ping?a%0A%1B=1&a%0A%1B=1", ""),
         "400 The parameter a?? may be given only once."},
        {"control characters in a method", head("P\x01\x1BT /service/v1/ping", ""),
         "400 The method P??T is not possible at this address."},
        {"raw byte in the path", head("GET /service/v1/files/\xC3\xA4", ""),
         "400 The address of the request holds characters that must be percent-encoded."},
        {"absolute target", head("GET http://tarn/service/v1/ping", ""),
         "400 The address of the request holds characters that must be percent-encoded."},
        {"broken escape in the query", head("GET /service/v1/ping?a=%2", ""),
         "400 The address of the request is not valid percent-encoded UTF-8."},
        {"large headers", head("GET /service/v1/ping", "a: " + std::string(40'000, 'x') + "\r\n"),
         "413 The headers of the request are too large."},
        {"stray content",
         head("GET /service/v1/ping", "Content-Length: 100000\r\n") + std::string(100'000, 'x'),
         "413 The request carries content that nothing here takes."},
    };
    for (const auto& [name, request, error] : cases)
        EXPECT_EQ(outcomeOf(send(request)), error) << name;
    expectNothingStored();
}

/// These never reach the handlers. What counts is that the connection ends before what follows is taken as a
/// request.
TEST_F(Framing, EndsTheConnectionOverALengthThatIsNoNumber)
{
    for (const std::string length : {"-1", "+3", "0x3", "3, 3", "99999999999999999999999", ""}) {
        Wire wire(service.port());
        wire.send(putHead("Content-Length: " + length + "\r\n") + "abc" + head("GET /service/v1/ping", ""));
        EXPECT_EQ(outcomeOf(wire.receive().value()),
                  "400 The header Content-Length is not a number of bytes.");
        EXPECT_EQ(wire.rest(), "") << length;
    }
    for (const auto& request : {putHead("Transfer-Encoding: chunked\r\n") + "zz\r\nabc\r\n0\r\n\r\n",
                                head("GET /service/v1/ping", "a: " + std::string(1'000'000, 'x') + "\r\n")}) {
        Wire wire(service.port());
        wire.send(request);
        const auto reply = wire.receive();
        EXPECT_TRUE(!reply || reply->status >= 400);
    }
    expectNothingStored();
}

TEST_F(Framing, DropsAnUploadThatEndsEarly)
{
    {
        Wire halfClosed(service.port());
        halfClosed.send(putHead("Content-Length: 10\r\n") + "abc");
        halfClosed.endOfRequest();
        const auto reply = halfClosed.receive();
        EXPECT_TRUE(!reply || reply->status >= 400);
        Wire gone(service.port());
        gone.send(putHead("Content-Length: 10\r\n") + "abc");
    }
    expectNothingStored();
    ASSERT_EQ(service.terminate(), 0);
    const auto fsck = service.run({"fsck"});
    EXPECT_EQ(fsck.exitCode, 0) << fsck.out << fsck.err;
}

TEST_F(Framing, KeepsAConnectionAliveThroughRepliesAndRefusals)
{
    Wire wire(service.port());
    const auto ping = head("GET /service/v1/ping", "");
    const auto missing = head("GET /service/v1/files/none", "");
    const auto refusedUpload = requestText("PUT", "/service/v1/files/f?createMode=UPDATE", alice, "content");
    wire.send(ping + missing + refusedUpload + ping);
    for (const int status : {200, 404, 404, 200}) {
        const auto reply = wire.receive();
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->status, status);
    }
}

TEST_F(Framing, TellsAWaitingClientToGoOnOnlyWhenTheUploadIsWelcome)
{
    Wire welcome(service.port());
    welcome.send(putHead("Content-Length: 3\r\nExpect: 100-continue\r\n"));
    ASSERT_EQ(welcome.receive().value().status, 100);
    welcome.send("abc");
    ASSERT_EQ(welcome.receive().value().status, 200);

    Wire refused(service.port());
    refused.send(putHead("Content-Length: 3\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(outcomeOf(refused.receive().value()), "409 The file already exists.");
    EXPECT_EQ(refused.rest(), "");
}

TEST_F(Framing, GivesTheReasonToAClientThatSendsALargeBodyUnasked)
{
    put("/f", "");
    for (const auto& [size, isRead] : {std::pair(200'000, true), std::pair(40'000'000, false)}) {
        // Made beforehand: the service waits two seconds for it.
        const auto request = requestText("PUT", "/service/v1/files/f?createMode=CREATE", alice,
                                         std::string(static_cast<std::size_t>(size), 'x'));
        Wire wire(service.port());
        EXPECT_EQ(wire.send(request), isRead);
        auto reply = wire.receive().value();
        EXPECT_EQ(outcomeOf(reply), "409 The file already exists.");
        EXPECT_EQ(reply.headers["cache-control"], "no-store");
    }
    Wire endless(service.port());
    endless.send(putHead("Transfer-Encoding: chunked\r\n"));
    int chunks = 0;
    while (chunks < 1000 && endless.send("8000\r\n" + std::string(0x8000, 'x') + "\r\n"))
        ++chunks;
    EXPECT_LT(chunks, 1000);
}

} // namespace
} // namespace tarnd::test
