#pragma once

#include "tarnhost/HttpOptions.h"

#include <curl/curl.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace connector::host::detail {

/// A libcurl handle with everything set that is the same in each exchange. Making one costs more than a short
/// exchange does, so that it serves one after another.
class EasyHandle {
public:
    /// @throws std::runtime_error
    explicit EasyHandle(const HttpOptions& options);
    EasyHandle(const EasyHandle&) = delete;
    EasyHandle& operator=(const EasyHandle&) = delete;

    CURL* get() const { return easy.get(); }

    /// @throws std::runtime_error
    template <class Value>
    void set(CURLoption option, Value value)
    {
        if (const CURLcode fault = curl_easy_setopt(easy.get(), option, value); fault != CURLE_OK) {
            throw std::runtime_error(curl_easy_strerror(fault));
        }
    }

    /// What the last exchange failed with, in libcurl's words; may be empty.
    const char* errorText() const { return error.data(); }

private:
    struct Free {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    std::array<char, CURL_ERROR_SIZE> error{};
    std::unique_ptr<CURL, Free> easy; ///< goes before the text that it refers to
};

} // namespace connector::host::detail
