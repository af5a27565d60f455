#include "cli/service/Probe.h"

#include <cstring>
#include <curl/curl.h>
#include <memory>
#include <new>
#include <system_error>

namespace tarncli {

namespace {

using Clock = std::chrono::system_clock;

/// No service says more to a request without a session.
constexpr std::size_t bodyLimit = 64 * 1024;

struct Cleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

using Handle = std::unique_ptr<CURL, Cleanup>;

std::optional<Clock::time_point> timeOf(const std::string& text)
{
    const auto seconds = curl_getdate(text.c_str(), nullptr);
    if (seconds < 0) return {};
    return Clock::from_time_t(seconds);
}

/// Nothing may be thrown through libcurl; what has no room is left out.
std::size_t takeBody(char* bytes, std::size_t unit, std::size_t count, void* into) noexcept
{
    auto& body = *static_cast<std::string*>(into);
    if (body.size() + unit * count > bodyLimit) return 0;
    body.append(bytes, unit * count);
    return unit * count;
}

Handle handleFor(const Service& service, const std::string& url, std::chrono::seconds limit, char* error)
{
    Handle easy(curl_easy_init());
    if (!easy) throw std::bad_alloc();
    const auto milliseconds = static_cast<long>(std::chrono::milliseconds(limit).count());
    curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy.get(), CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT_MS, 2 * milliseconds);
    curl_easy_setopt(easy.get(), CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    curl_easy_setopt(easy.get(), CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(easy.get(), CURLOPT_PROXY,
                     service.proxy.c_str()); // empty: none, also not the environment's
    curl_easy_setopt(easy.get(), CURLOPT_NOPROXY, "");
    curl_easy_setopt(easy.get(), CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (!service.caFile.empty()) {
        curl_easy_setopt(easy.get(), CURLOPT_CAINFO, service.caFile.c_str());
        curl_easy_setopt(easy.get(), CURLOPT_CAPATH, nullptr);
    }
    return easy;
}

template <class Value>
Value infoOf(CURL* easy, CURLINFO what)
{
    Value value{};
    curl_easy_getinfo(easy, what, &value);
    return value;
}

Probe::Milliseconds since(CURL* easy, CURLINFO begin, CURLINFO end)
{
    const auto from = begin == CURLINFO_NONE ? curl_off_t{0} : infoOf<curl_off_t>(easy, begin);
    const auto to = infoOf<curl_off_t>(easy, end);
    return std::chrono::microseconds(to > from ? to - from : 0);
}

std::optional<Probe::Certificate> certificateOf(CURL* easy)
{
    const auto* chain = infoOf<curl_certinfo*>(easy, CURLINFO_CERTINFO);
    if (chain == nullptr || chain->num_of_certs == 0) return {};
    Probe::Certificate certificate;
    for (const auto* line = chain->certinfo[0]; line != nullptr; line = line->next) {
        const std::string text = line->data;
        if (text.starts_with("Issuer:")) certificate.issuer = text.substr(std::strlen("Issuer:"));
        if (text.starts_with("Expire date:"))
            certificate.ends = timeOf(text.substr(std::strlen("Expire date:")));
    }
    return certificate;
}

/// One that is not trusted can still be looked at: nothing is sent.
std::optional<Probe::Certificate> refusedCertificate(const Service& service, const std::string& url,
                                                     std::chrono::seconds limit)
{
    char error[CURL_ERROR_SIZE] = "";
    const auto easy = handleFor(service, url, limit, error);
    curl_easy_setopt(easy.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(easy.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(easy.get(), CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_perform(easy.get());
    return certificateOf(easy.get());
}

Probe::Step stepOf(CURLcode outcome, CURL* easy, bool isSecure)
{
    if (outcome == CURLE_OK) return Probe::Step::done;
    if (infoOf<curl_off_t>(easy, CURLINFO_NAMELOOKUP_TIME_T) == 0 || outcome == CURLE_COULDNT_RESOLVE_HOST ||
        outcome == CURLE_COULDNT_RESOLVE_PROXY)
        return Probe::Step::lookup;
    // First, since libcurl gives the time of the connection only when all of it was made.
    for (const auto secure : {CURLE_SSL_CONNECT_ERROR, CURLE_PEER_FAILED_VERIFICATION, CURLE_SSL_CERTPROBLEM,
                              CURLE_SSL_CIPHER, CURLE_SSL_CACERT_BADFILE, CURLE_SSL_ISSUER_ERROR})
        if (outcome == secure) return Probe::Step::secure;
    const auto connected = isSecure ? CURLINFO_APPCONNECT_TIME_T : CURLINFO_CONNECT_TIME_T;
    return infoOf<curl_off_t>(easy, connected) == 0 ? Probe::Step::connect : Probe::Step::answer;
}

std::string reasonOf(CURLcode outcome, CURL* easy, const char* error)
{
    const auto systemError = infoOf<long>(easy, CURLINFO_OS_ERRNO);
    if (outcome == CURLE_COULDNT_CONNECT && systemError != 0)
        return std::generic_category().message(static_cast<int>(systemError));
    return error[0] != '\0' ? error : curl_easy_strerror(outcome);
}

} // namespace

Probe probe(const Service& service, const std::string& endpoint, std::chrono::seconds limit)
{
    const auto url = endpoint + "/service/v1/ping";
    const bool isSecure = url.starts_with("https:");
    Probe found;
    char error[CURL_ERROR_SIZE] = "";
    const auto handle = handleFor(service, url, limit, error);
    auto* easy = handle.get();
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &takeBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &found.body);
    const auto outcome = curl_easy_perform(easy);

    found.reached = stepOf(outcome, easy, isSecure);
    if (outcome != CURLE_OK) found.why = reasonOf(outcome, easy, error);
    if (const auto* address = infoOf<char*>(easy, CURLINFO_PRIMARY_IP)) found.address = address;
    const auto connected = isSecure ? CURLINFO_APPCONNECT_TIME_T : CURLINFO_CONNECT_TIME_T;
    found.lookup = since(easy, CURLINFO_NONE, CURLINFO_NAMELOOKUP_TIME_T);
    found.connect = since(easy, CURLINFO_NAMELOOKUP_TIME_T, CURLINFO_CONNECT_TIME_T);
    found.secure = since(easy, CURLINFO_CONNECT_TIME_T, connected);
    found.answer = since(easy, connected, CURLINFO_TOTAL_TIME_T);
    found.certificate =
        found.reached == Probe::Step::secure ? refusedCertificate(service, url, limit) : certificateOf(easy);
    found.status = static_cast<std::uint16_t>(infoOf<long>(easy, CURLINFO_RESPONSE_CODE));
    if (const auto* type = infoOf<char*>(easy, CURLINFO_CONTENT_TYPE)) found.contentType = type;
    curl_header* date = nullptr;
    if (curl_easy_header(easy, "Date", 0, CURLH_HEADER, -1, &date) == CURLHE_OK)
        found.time = timeOf(date->value);
    return found;
}

} // namespace tarncli
