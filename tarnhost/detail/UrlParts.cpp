#include "tarnhost/detail/UrlParts.h"

#include <curl/curl.h>

#include <memory>
#include <stdexcept>

namespace connector::host::detail {
namespace {

using Url = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

std::string part(const Url& url, CURLUPart which, unsigned flags = 0)
{
    char* text = nullptr;
    if (curl_url_get(url.get(), which, &text, flags) != CURLUE_OK) return {};
    std::unique_ptr<char, decltype(&curl_free)> held(text, &curl_free);
    return held.get();
}

} // namespace

UrlParts::UrlParts(const std::string& text)
{
    Url url(curl_url(), &curl_url_cleanup);
    if (!url) throw std::bad_alloc();
    if (text.find('\0') != std::string::npos) throw std::invalid_argument("it holds a NUL character.");
    if (const auto fault = curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0); fault != CURLUE_OK) {
        throw std::invalid_argument(std::string("it is not valid (") + curl_url_strerror(fault) + ").");
    }
    scheme = part(url, CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https") {
        throw std::invalid_argument("the scheme is neither http nor https.");
    }
    host = part(url, CURLUPART_HOST);
    port = part(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    path = part(url, CURLUPART_PATH);
    hasUser = !part(url, CURLUPART_USER).empty() || !part(url, CURLUPART_PASSWORD).empty();
    hasQueryOrFragment = !part(url, CURLUPART_QUERY).empty() || !part(url, CURLUPART_FRAGMENT).empty();
}

} // namespace connector::host::detail
