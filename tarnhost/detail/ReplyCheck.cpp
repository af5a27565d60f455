#include "tarnhost/detail/ReplyCheck.h"

#include "tarn/foundation/DeliveryScope.h"
#include "tarnhost/HostErrors.h"

#include <utility>

namespace connector::host::detail {

std::exception_ptr faultOf(const ReceivedReply& reply, const HttpOptions& options, const UrlParts& target,
                           bool mayHaveHappened)
{
    if (!options.replyCheck) return nullptr;
    try {
        auto wrong = options.replyCheck(reply);
        if (wrong.empty()) return nullptr;
        const auto phase = isGatewayStatus(reply.status) ? TransportPhase::gateway : TransportPhase::reply;
        return std::make_exception_ptr(
            TransportError(phase, target.printable(), target.peer(), std::move(wrong), mayHaveHappened));
    } catch (...) {
        return std::current_exception();
    }
}

HeadDelivery::HeadDelivery(Promise<std::unique_ptr<Message>> given,
                           std::unique_ptr<http::HttpStreamedResponse> arrived,
                           std::shared_ptr<IncomingStream> body, std::string type,
                           std::shared_ptr<const HttpOptions> httpOptions, UrlParts origin,
                           bool mayHaveHappened)
    : promise(std::move(given))
    , response(std::move(arrived))
    , stream(std::move(body))
    , contentType(std::move(type))
    , options(std::move(httpOptions))
    , target(std::move(origin))
    , leavesDoubt(mayHaveHappened)
{
}

HeadDelivery::~HeadDelivery()
{
    if (!response) return;
    promise.setException(std::make_exception_ptr(errors::hostStoppedError()));
}

void HeadDelivery::operator()()
{
    const DeliveryScope scope("the reply to ", &target.path);
    auto taken = std::move(response);
    if (auto error = faultOf({taken->status, contentType, true, {}}, *options, target, leavesDoubt)) {
        taken.reset(); // nobody has subscribed to its body, which is cancelled by that
        promise.setException(std::move(error));
    } else {
        stream->deliverAfter([&] { promise.setValue(std::move(taken)); });
    }
}

} // namespace connector::host::detail
