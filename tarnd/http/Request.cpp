#include "tarnd/http/Request.h"

#include "tarnd/http/Sentences.h"

#include <algorithm>
#include <charconv>
#include <strings.h>

namespace tarnd {

namespace {

constexpr std::size_t headersLimit = 32 * 1024; // of names and values, target included

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

bool isControl(char c)
{
    return (c >= 0 && c < 0x20 && c != '\t') || c == 0x7f;
}

} // namespace

bool sameName(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

void checkFields(const Headers& fields, std::size_t more)
{
    std::size_t size = more;
    for (const auto& [name, value] : fields) {
        size += name.size() + value.size();
        // "Content-Length : 3" is a length to some readers and an unknown header to others.
        if (std::any_of(name.begin(), name.end(), isBlank)) throw sentences::badHeader();
        if (std::any_of(value.begin(), value.end(), isControl)) throw sentences::controlInHeader();
    }
    if (size > headersLimit) throw sentences::headersTooLarge();
}

std::vector<std::string_view> valuesOf(const Headers& headers, std::string_view name)
{
    std::vector<std::string_view> values;
    for (const auto& [key, value] : headers)
        if (sameName(key, name)) values.push_back(value);
    return values;
}

std::string joined(const std::vector<std::string_view>& values)
{
    std::string list;
    for (const auto value : values)
        list.append(list.empty() ? "" : ", ").append(value);
    return list;
}

namespace {

std::string_view onlyValue(const Headers& headers, std::string_view name)
{
    const auto values = valuesOf(headers, name);
    if (values.size() > 1) throw sentences::repeatedHeader(name);
    return values.empty() ? std::string_view() : values.front();
}

/// Two of them lead a proxy in front to one host and the service behind it to another.
void requireOneHost(const Headers& headers)
{
    if (valuesOf(headers, "Host").size() > 1) throw sentences::repeatedHeader("Host");
}

/// Two readings of where a body ends let one request hide inside another, so anything ambiguous is refused.
std::optional<std::uint64_t> lengthOf(const Headers& headers)
{
    const auto encodings = valuesOf(headers, "Transfer-Encoding");
    if (encodings.size() > 1) throw sentences::repeatedHeader("Transfer-Encoding");
    if (!encodings.empty() && !sameName(encodings.front(), "chunked"))
        throw sentences::unknownTransferEncoding();
    if (valuesOf(headers, "Content-Length").empty()) return {};
    const auto text = onlyValue(headers, "Content-Length");
    if (!encodings.empty()) throw sentences::ambiguousLength();
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (error != std::errc() || end != text.data() + text.size()) throw sentences::badContentLength();
    return length;
}

/// Refuses what a client should have escaped; such bytes are a sign of a request line cut in the wrong place.
std::string_view checkedTarget(std::string_view target)
{
    const auto isPlain = [](char c) { return c > 0x20 && c < 0x7f; };
    if (target.empty() || target.front() != '/' || !std::all_of(target.begin(), target.end(), isPlain))
        throw sentences::badTarget();
    return target;
}

std::string_view queryOf(std::string_view target)
{
    const auto mark = target.find('?');
    return mark == std::string_view::npos ? std::string_view() : target.substr(mark + 1);
}

} // namespace

Request::Request(std::string method, std::string_view target, Headers given)
    : methodName(std::move(method))
    , rawPath(target.substr(0, target.find('?')))
    , parameters(queryOf(checkedTarget(target)))
    , headers(std::move(given))
{
    checkFields(headers, target.size());
    requireOneHost(headers);
    announcedLength = lengthOf(headers);
}

std::string Request::header(std::string_view name) const
{
    return std::string(onlyValue(headers, name));
}

std::vector<std::string_view> Request::headerValues(std::string_view name) const
{
    return valuesOf(headers, name);
}

bool Request::isChunked() const
{
    return !valuesOf(headers, "Transfer-Encoding").empty();
}

void requireVersion(const RequestHead& head)
{
    if (head.version == "HTTP/1.1" && valuesOf(head.headers, "Host").empty())
        throw sentences::missingHeader("Host");
    // A proxy of that age passes it on without a look, and takes the body's end for something else.
    if (head.version == "HTTP/1.0" && !valuesOf(head.headers, "Transfer-Encoding").empty())
        throw sentences::noTransferEncoding();
}

bool waitsForContinue(const Headers& headers)
{
    const auto values = valuesOf(headers, "Expect");
    return values.size() == 1 && sameName(values.front(), "100-continue");
}

} // namespace tarnd
