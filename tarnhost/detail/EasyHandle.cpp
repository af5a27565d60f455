#include "tarnhost/detail/EasyHandle.h"

#include "tarnhost/detail/Proxy.h"

#include <new>
#include <system_error>

namespace connector::host::detail {

/// What keeps an exchange from leaving its host, its protocol, its limits or the reach of its errors.
EasyHandle::EasyHandle(const HttpOptions& options) : easy(curl_easy_init())
{
    if (!easy) throw std::bad_alloc();
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L); // nobody waits longer than they said for a name server that does not answer
    set(CURLOPT_ERRORBUFFER, error.data());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L); // a proxy's consent is no head of the reply
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options.caFile.empty()) {
        set(CURLOPT_CAINFO, options.caFile.c_str());
        set(CURLOPT_CAPATH, nullptr);
    }
    const Proxy proxy(options.proxy);
    set(CURLOPT_PROXY, proxy.url.c_str()); // empty also switches the environment's proxies off
    if (!proxy.user.empty() || !proxy.password.empty()) {
        set(CURLOPT_PROXYUSERNAME, proxy.user.c_str());
        set(CURLOPT_PROXYPASSWORD, proxy.password.c_str());
    }
    set(CURLOPT_NOPROXY, "");
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options.connectTimeout.count()));
}

std::string EasyHandle::reasonOf(CURLcode outcome) const
{
    long systemError = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_OS_ERRNO, &systemError);
    if (outcome == CURLE_COULDNT_CONNECT && systemError != 0)
        return std::generic_category().message(static_cast<int>(systemError));
    return error[0] != '\0' ? error.data() : curl_easy_strerror(outcome);
}

TransportPhase phaseOf(CURLcode outcome, bool sendBegun)
{
    if (sendBegun) return TransportPhase::exchange;
    switch (outcome) {
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_LOGIN_DENIED:
        return TransportPhase::prepare;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
        return TransportPhase::secure;
    default:
        return TransportPhase::connect;
    }
}

} // namespace connector::host::detail
