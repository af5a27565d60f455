#include "tarnhost/detail/UrlParts.h"

#include "tarnhost/detail/UrlText.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace connector::host::detail {
namespace {

/// Where the path begins; npos where it is not written out.
std::size_t pathOf(const std::string& url)
{
    const auto scheme = url.find("://");
    if (scheme == std::string::npos) return scheme;
    const auto isPathBegin = [](char c) { return c == '/' || c == '?' || c == '#'; };
    const auto begin =
        std::find_if(url.begin() + static_cast<std::ptrdiff_t>(scheme + 3), url.end(), isPathBegin);
    return begin == url.end() ? std::string::npos : static_cast<std::size_t>(begin - url.begin());
}

/// How long the path is that `text` begins with.
std::size_t pathLength(std::string_view text)
{
    const auto end = std::ranges::find_if(text, [](char c) { return c == '?' || c == '#'; });
    return static_cast<std::size_t>(end - text.begin());
}

/// It has a host where it should, and nothing that an origin would not show.
bool isPlainService(std::string_view service)
{
    return !service.ends_with("://") &&
           std::ranges::none_of(service, [](char c) { return c == '%' || c == '@'; });
}

/// No libcurl would change or refuse any of it.
bool isPlain(std::string_view pathAndQuery)
{
    constexpr std::size_t longest = 64 * 1024;
    return pathAndQuery.starts_with('/') && pathAndQuery.size() < longest &&
           pathAndQuery.find("/.") == std::string_view::npos &&
           std::all_of(pathAndQuery.begin(), pathAndQuery.end(),
                       [](char c) { return c > ' ' && c < '\x7f'; });
}

/// The URL taken apart last on this thread, and its text up to the path.
struct Remembered {
    std::string service;
    UrlParts parts;
};

} // namespace

UrlParts::UrlParts(const std::string& text)
{
    const UrlText url(text, 0);
    scheme = url.part(CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https") {
        throw std::invalid_argument("the scheme is neither http nor https.");
    }
    host = url.part(CURLUPART_HOST);
    port = url.part(CURLUPART_PORT, CURLU_DEFAULT_PORT);
    path = url.part(CURLUPART_PATH);
    origin = scheme + "://" + peer();
    hasUser = !url.part(CURLUPART_USER).empty() || !url.part(CURLUPART_PASSWORD).empty();
    hasQueryOrFragment = !url.part(CURLUPART_QUERY).empty() || !url.part(CURLUPART_FRAGMENT).empty();
}

UrlParts partsOf(const std::string& url)
{
    static thread_local std::optional<Remembered> last;
    const auto begin = pathOf(url);
    if (begin == std::string::npos) return UrlParts(url);
    const std::string_view service(url.data(), begin);
    if (!isPlainService(service)) return UrlParts(url);
    const std::string_view rest = std::string_view(url).substr(begin);
    if (!last || last->service != service || !isPlain(rest)) {
        last.emplace(Remembered{std::string(service), UrlParts(url)});
        return last->parts;
    }
    const auto pathEnd = pathLength(rest);
    last->parts.path = rest.substr(0, pathEnd);
    last->parts.hasQueryOrFragment = pathEnd < rest.size();
    last->parts.isPlain = rest.find('#') == std::string_view::npos;
    return last->parts;
}

} // namespace connector::host::detail
