#pragma once

#include "tarnhost/HttpOptions.h"
#include "tarnhost/TransportError.h"

#include <curl/curl.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>

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

    /// Why the last exchange failed, in the words of the system or of libcurl.
    std::string reasonOf(CURLcode outcome) const;

private:
    struct Free {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    std::array<char, CURL_ERROR_SIZE> error{};
    std::unique_ptr<CURL, Free> easy; ///< goes before the text that it refers to
};

/// How far an exchange had come that libcurl ended so.
TransportPhase phaseOf(CURLcode outcome, bool sendBegun);

} // namespace connector::host::detail
