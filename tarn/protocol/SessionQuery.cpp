#include "tarn/protocol/SessionQuery.h"

#include "tarn/protocol/WireText.h"

namespace connector::tarn {

void addSessionQueryParameters(Poco::URI& uri, const std::string& clientString, const std::string& clientType,
                               const std::u16string& bucket)
{
    uri.addQueryParameter("locale", "en_US");
    if (!clientString.empty()) uri.addQueryParameter("clientString", clientString);
    if (!clientType.empty()) uri.addQueryParameter("clientType", clientType);
    if (!bucket.empty()) uri.addQueryParameter("bucket", toWire(bucket));
}

void addUtf16QueryParameter(std::unique_ptr<http::HttpClientRequest>& httpRequest, const std::string& name,
                            const std::u16string& value)
{
    Poco::URI uri(httpRequest->url);
    uri.addQueryParameter(name, toWire(value));
    httpRequest->url = uri.toString();
}

} // namespace connector::tarn
