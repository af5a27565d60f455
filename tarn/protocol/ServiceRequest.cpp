#include "tarn/protocol/ServiceRequest.h"

#include "tarn/protocol/WireText.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace connector::tarn {
namespace {

/// Percent-encoded in a path besides what Poco always encodes.
constexpr const char* reservedInUrl = "%<>{}|\\\"^`!*'()$,[]";

/// By byte, whether Poco would encode it.
constexpr auto encodedBytes = [] {
    std::array<bool, 256> encoded{};
    for (std::size_t byte = 0; byte < encoded.size(); ++byte)
        encoded[byte] = byte <= 0x20 || byte >= 0x7f;
    for (const char* sign = reservedInUrl; *sign != '\0'; ++sign)
        encoded[static_cast<unsigned char>(*sign)] = true;
    return encoded;
}();

/// Most URLs hold nothing to encode, which a look at the table tells in a fraction of the time.
std::string encodeUrl(const std::string& text)
{
    if (std::none_of(text.begin(), text.end(), [](unsigned char byte) { return encodedBytes[byte]; }))
        return text;
    std::string encoded;
    Poco::URI::encode(text, reservedInUrl, encoded);
    return encoded;
}

/// To look for options that are not there takes many steps up the bases; a class that has none is remembered.
SharedCallOptions optionsFrom(const TarnBaseRequest& request)
{
    static thread_local const std::type_info* plain = nullptr;
    const std::type_info& type = typeid(request);
    if (&type == plain) return nullptr;
    const auto* carrier = dynamic_cast<const connector::detail::OptionsCarrier*>(&request);
    if (!carrier) plain = &type;
    return carrier ? carrier->options : nullptr;
}

std::string joinResource(const std::string& resourcePath)
{
    return resourcePath.empty() || resourcePath.front() == '/' ? resourcePath : "/" + resourcePath;
}

} // namespace

ServiceRequest::ServiceRequest(std::string methodWord, const std::string& urlText)
    : method(std::move(methodWord)), uri(encodeUrl(urlText))
{
}

void ServiceRequest::addIdentity(const TarnBaseRequest& request, const std::u16string& bucket)
{
    addSessionQueryParameters(uri, request.clientString, request.clientType, bucket);
    options = optionsFrom(request);
}

void ServiceRequest::addText(const std::string& name, const std::u16string& value)
{
    addText(name, toWire(value));
}

void ServiceRequest::addFlag(const std::string& name, bool value)
{
    addText(name, std::string(toWire(value)));
}

void ServiceRequest::addNumber(const std::string& name, std::int64_t value)
{
    addText(name, std::to_string(value));
}

void ServiceRequest::addTag(const std::string& header, const std::string& tag)
{
    if (tag.empty()) return;
    const auto isForbidden = [](unsigned char byte) { return byte == '"' || byte < 0x20 || byte == 0x7f; };
    if (std::any_of(tag.begin(), tag.end(), isForbidden))
        throw std::invalid_argument("The tag of a version holds a quotation mark or a control character.");
    addHeader(header, '"' + tag + '"');
}

ServiceRequest sessionRequest(const std::string& endpoint, const std::string& method,
                              const std::string& servicePath, const std::string& resourcePath,
                              const SessionRequest& request)
{
    ServiceRequest built(method, endpoint + servicePath + joinResource(resourcePath));
    built.addIdentity(request);
    built.addHeader(sessionIdHeader, request.sessionId); // even when empty: the service then says so
    return built;
}

std::unique_ptr<http::HttpClientRequest>
makeSessionHttpRequest(const std::string& endpoint, const std::string& method, const std::string& servicePath,
                       const std::string& resourcePath, const SessionRequest& request)
{
    return sessionRequest(endpoint, method, servicePath, resourcePath, request).build();
}

ServiceRequest pathRequest(const std::string& endpoint, const std::string& method,
                           const std::string& servicePath, const std::u16string& path,
                           const std::u16string& bucket, const SessionRequest& request)
{
    ServiceRequest built(method, endpoint + servicePath + toWire(path));
    built.addIdentity(request, bucket);
    built.addHeader(sessionIdHeader, request.sessionId);
    return built;
}

} // namespace connector::tarn
