#include "tarnhost/detail/UrlText.h"

#include <new>
#include <stdexcept>

namespace connector::host::detail {

UrlText::UrlText(const std::string& text, unsigned flags) : url(curl_url(), &curl_url_cleanup)
{
    if (!url) throw std::bad_alloc();
    if (text.find('\0') != std::string::npos) throw std::invalid_argument("it holds a NUL character.");
    if (const auto fault = curl_url_set(url.get(), CURLUPART_URL, text.c_str(), flags); fault != CURLUE_OK) {
        throw std::invalid_argument(std::string("it is not valid (") + curl_url_strerror(fault) + ").");
    }
    if (part(CURLUPART_PORT) == "0") throw std::invalid_argument("the port is 0.");
}

std::string UrlText::part(CURLUPart which, unsigned flags) const
{
    char* text = nullptr;
    if (curl_url_get(url.get(), which, &text, flags) != CURLUE_OK) return {};
    std::unique_ptr<char, decltype(&curl_free)> held(text, &curl_free);
    return held.get();
}

} // namespace connector::host::detail
