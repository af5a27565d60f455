#include "tarn/publiclinks/PublicLinksClientServiceProvider.h"

#include "tarn/protocol/HttpExchange.h"
#include "tarn/protocol/ReplyFields.h"
#include "tarn/protocol/ServiceRequest.h"
#include "tarn/publiclinks/PublicLinkMessages.h"

namespace connector::tarn {
namespace {

using Poco::XML::Document;
using Reply = PublicLinksServiceProvider::Reply;

constexpr const char* linksPath = "/service/v1/public/links";

constexpr std::tuple createFields{
    Field{"PublicLinkId", &PublicLinkCreateResponse::linkId},
    Field{"PublicAccessUrl", &PublicLinkCreateResponse::url},
    Field{"Expires", &PublicLinkCreateResponse::expires},
};

constexpr std::tuple linkFields{
    Field{"PublicLinkId", &PublicLink::linkId}, Field{"PublicAccessUrl", &PublicLink::url},
    Field{"Expires", &PublicLink::expires},     Field{"Type", &PublicLink::type},
    Field{"Path", &PublicLink::path},           Field{"Bucket", &PublicLink::bucket},
};

std::unique_ptr<PublicLinkListResponse> readLinks(const Document& reply)
{
    auto response = std::make_unique<PublicLinkListResponse>();
    const auto elements = elementsNamed(reply, "PublicLink");
    response->links.reserve(elements.size());
    for (const auto* element : elements)
        readFields(*element, response->links.emplace_back(), linkFields);
    return response;
}

/// Which answer means that the service does not have the operation.
enum class NamesAnItem { yes, no };

/// An operation that no service need have: where it is missing, the error says so. A path that is not there answers
/// 404, too, so only requests that name none can take it for a missing operation.
Reply sayingWhatIsMissing(Reply&& reply, NamesAnItem namesAnItem)
{
    return std::move(reply).then([namesAnItem](Reply&& ready) {
        try {
            return ready.get();
        } catch (const TarnError& error) {
            const bool missing = error.kind() == ErrorKind::notSupported ||
                                 (namesAnItem == NamesAnItem::no && error.kind() == ErrorKind::notFound &&
                                  error.status() == 404);
            if (!missing) throw;
            TarnError explained(ErrorKind::notSupported,
                                "The service makes no links that end, and lists and revokes none.",
                                error.status(), error.reason());
            explained.setExchange(error.method(), error.url(), error.status());
            throw explained;
        }
    });
}

/// @throws TarnError, as the service answers, for what no link is called: it would make another address
const std::string& checkedId(const std::string& linkId)
{
    if (linkId.find_first_of("/?#") == linkId.npos) return linkId;
    throw TarnError(ErrorKind::notFound, "There is no public link with the id \"" + linkId + "\".", 0,
                    "unknownLink");
}

} // namespace

PublicLinksClientServiceProvider::PublicLinksClientServiceProvider(
    std::shared_ptr<configuration::Configuration> store, const std::string& initialEndpoint)
    : endpoint(initialEndpoint)
    , configuration(std::move(store))
    , cancellers(trackEndpoint(configuration, initialEndpoint, [this](configuration::ConfigValue&& value) {
        endpoint = boost::get<std::string>(std::move(value));
    }))
{
}

Reply PublicLinksClientServiceProvider::handle(std::unique_ptr<PublicLinkCreate>&& request, Address&& to,
                                               ContextPtr&& context)
{
    auto build = [&] {
        ServiceRequest http =
            pathRequest(endpoint, "put", linksPath, request->path, request->bucket, *request);
        if (request->expires != 0) http.addText("expires", std::to_string(request->expires));
        return http.build();
    };
    return sayingWhatIsMissing(buildAndExchangeXml(build, std::move(to), *context,
                                                   fieldsReader<PublicLinkCreateResponse>(createFields)),
                               NamesAnItem::yes);
}

Reply PublicLinksClientServiceProvider::handle(std::unique_ptr<PublicLinkList>&& request, Address&& to,
                                               ContextPtr&& context)
{
    auto build = [&] { return makeSessionHttpRequest(endpoint, "get", linksPath, "", *request); };
    return sayingWhatIsMissing(buildAndExchangeXml(build, std::move(to), *context, readLinks),
                               NamesAnItem::no);
}

Reply PublicLinksClientServiceProvider::handle(std::unique_ptr<PublicLinkRevoke>&& request, Address&& to,
                                               ContextPtr&& context)
{
    auto build = [&] {
        return makeSessionHttpRequest(endpoint, "delete", linksPath, checkedId(request->linkId), *request);
    };
    return sayingWhatIsMissing(
        buildAndExchangeXml(build, std::move(to), *context, readNothing<PublicLinkRevokeResponse>),
        NamesAnItem::no);
}

} // namespace connector::tarn
