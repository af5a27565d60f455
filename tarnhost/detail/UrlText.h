#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

namespace connector::host::detail {

/// A URL in libcurl's hands.
class UrlText {
public:
    /// @param flags  libcurl's, of what it is to take
    /// @throws std::invalid_argument with one sentence that does not quote the URL
    UrlText(const std::string& text, unsigned flags);

    /// Empty: the URL has none.
    std::string part(CURLUPart which, unsigned flags = 0) const;

    void remove(CURLUPart which) { curl_url_set(url.get(), which, nullptr, 0); }

private:
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url;
};

} // namespace connector::host::detail
