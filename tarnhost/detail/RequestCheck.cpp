#include "tarnhost/detail/RequestCheck.h"

#include "tarnhost/TransportError.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <new>
#include <stdexcept>
#include <string_view>

#include <strings.h>

namespace connector::host::detail {
namespace {

constexpr std::string_view tokenSigns = "!#$%&'*+-.^_`|~";

[[noreturn]] void refuse(const UrlParts& target, const std::string& reason)
{
    throw TransportError(TransportPhase::prepare, target.printable(), target.peer(), reason);
}

bool isTokenCharacter(unsigned char c)
{
    return c < 0x80 && (std::isalnum(c) || tokenSigns.find(static_cast<char>(c)) != std::string_view::npos);
}

std::string mapped(std::string text, int (*letter)(int))
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [letter](unsigned char c) { return static_cast<char>(letter(c)); });
    return text;
}

/// A blank value means the same as an empty one on the wire; libcurl would drop the header.
bool isBlank(const std::string& value)
{
    return value.find_first_not_of(" \t\v\f") == std::string::npos;
}

void checkHeader(const std::string& name, const std::string& value, const UrlParts& target)
{
    if (name.empty() || !std::all_of(name.begin(), name.end(), isTokenCharacter)) {
        refuse(target, "A header name holds a character that is not allowed there.");
    }
    if (std::ranges::any_of(value, [](char c) { return c == '\r' || c == '\n' || c == '\0'; })) {
        refuse(target, "The value of the header \"" + name + "\" holds a line break or NUL.");
    }
}

bool isFraming(const std::string& name)
{
    return strcasecmp(name.c_str(), "content-length") == 0 ||
           strcasecmp(name.c_str(), "transfer-encoding") == 0;
}

BodyFraming framingOf(const std::string& name, const std::string& value, const UrlParts& target)
{
    if (mapped(name, &std::tolower) == "transfer-encoding") {
        if (mapped(value, &std::tolower) != "chunked") refuse(target, "The body can be sent in chunks only.");
        return {true, std::nullopt};
    }
    std::uint64_t length = 0;
    const auto [end, fault] = std::from_chars(value.data(), value.data() + value.size(), length);
    if (fault != std::errc() || end != value.data() + value.size()) {
        refuse(target, "The length of the body is not a number.");
    }
    return {true, length};
}

} // namespace

UrlParts checkedTarget(const http::HttpClientRequest& request)
{
    try {
        const UrlParts target = partsOf(request.url);
        if (target.hasUser) refuse(target, "The URL holds a user name or password.");
        return target;
    } catch (const std::invalid_argument& fault) {
        throw TransportError(TransportPhase::prepare, "", "the service",
                             std::string("The URL cannot be used: ") + fault.what());
    }
}

std::string checkedMethod(const http::HttpClientRequest& request, const UrlParts& target)
{
    if (request.method != "get" && request.method != "put" && request.method != "delete") {
        refuse(target, "The method must be get, put or delete.");
    }
    return mapped(request.method, &std::toupper);
}

BodyFraming checkedFraming(const http::HttpClientRequest& request, const UrlParts& target)
{
    BodyFraming framing;
    for (const auto& [name, value] : request.headers) {
        if (!isFraming(name)) continue;
        if (!request.body) {
            refuse(target, "The header \"" + name + "\" follows from the body and cannot be set.");
        }
        if (framing.streamed) refuse(target, "The request says more than once how long its body is.");
        framing = framingOf(name, value, target);
    }
    return framing;
}

HeaderList checkedHeaders(const http::HttpClientRequest& request, const UrlParts& target)
{
    HeaderList list;
    auto append = [&list](const std::string& line) {
        curl_slist* grown = curl_slist_append(list.get(), line.c_str());
        if (!grown) throw std::bad_alloc();
        (void)list.release();
        list.reset(grown);
    };
    for (const auto& [name, value] : request.headers) {
        if (isFraming(name)) continue;
        checkHeader(name, value, target);
        append(isBlank(value) ? name + ";" : name + ": " + value);
    }
    append("Expect:"); // an upload does not wait for the service's consent
    return list;
}

} // namespace connector::host::detail
