// What any request can do to the service before it is routed to its handler: a line "METHOD target", then one
// header per line. It is taken or refused with a sentence, and every name that comes out of it is a good one.
#include "fuzz/Fuzz.h"
#include "tarnd/http/PercentEncoding.h"
#include "tarnd/http/Routes.h"
#include "tarnd/store/ServiceError.h"

#include <string>

namespace {

using namespace tarnd;

Headers headersOf(std::string_view lines)
{
    Headers headers;
    while (!lines.empty()) {
        auto line = tarnfuzz::cut(lines, '\n');
        const auto name = tarnfuzz::cut(line, ':');
        headers.emplace_back(name, line);
    }
    return headers;
}

void readAsHandlersDo(const Request& request, const Route& route)
{
    const auto tail = tailOf(route, request);
    if (route.tail == Tail::item) {
        const auto path = pathOf(tail);
        for (const auto& name : path.names())
            tarnfuzz::require(whyNameIsBad(name).empty(), "only good names reach the store");
    }
    if (route.tail == Tail::id && !tail.empty()) {
        const auto id = percentDecode(tail.substr(1));
        tarnfuzz::require(percentDecode(percentEncode(id)) == id, "what is encoded decodes to itself");
    }
    request.header("x-qz-tarn-session-id");
    request.query().number("versionLabel");
    request.query().flag("createNewVersion");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    auto rest = tarnfuzz::textOf(data, size);
    auto line = tarnfuzz::cut(rest, '\n');
    const auto method = tarnfuzz::cut(line, ' ');
    try {
        const Request request(std::string(method), line, headersOf(rest));
        readAsHandlersDo(request, routeOf(request));
    } catch (const ServiceError& error) {
        for (const char c : std::string_view(error.what()))
            tarnfuzz::require(static_cast<unsigned char>(c) >= 0x20, "a sentence is one line of plain text");
    }
    return 0;
}
