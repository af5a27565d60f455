#pragma once

#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/HttpStreamedResponse.h"
#include "tarnhost/HttpOptions.h"
#include "tarnhost/detail/IncomingStream.h"
#include "tarnhost/detail/UrlParts.h"

#include <exception>
#include <memory>
#include <string>

/// The application's look at a reply before it is handed on: HttpOptions::replyCheck.
namespace connector::host::detail {

/// @param target  where the reply comes from
/// @return why it must not be handed on, as TransportError of phase reply or gateway, or what the check threw; null: it may
std::exception_ptr faultOf(const ReceivedReply& reply, const HttpOptions& options, const UrlParts& target,
                           bool mayHaveHappened);

/// A job that checks a reply whose body is still on its way and settles its promise. One that goes without having
/// run, since the threads have ended, settles it too.
class HeadDelivery {
public:
    HeadDelivery(Promise<std::unique_ptr<Message>> given, std::unique_ptr<http::HttpStreamedResponse> arrived,
                 std::shared_ptr<IncomingStream> body, std::string type,
                 std::shared_ptr<const HttpOptions> httpOptions, UrlParts origin, bool mayHaveHappened);
    HeadDelivery(HeadDelivery&&) = default;
    HeadDelivery& operator=(HeadDelivery&&) = delete;
    ~HeadDelivery();

    void operator()();

private:
    Promise<std::unique_ptr<Message>> promise;
    std::unique_ptr<http::HttpStreamedResponse> response; ///< null: settled, or moved from
    std::shared_ptr<IncomingStream> stream;
    std::string contentType;
    std::shared_ptr<const HttpOptions> options;
    UrlParts target;
    bool leavesDoubt; ///< whether the request may have been carried out, should the reply be refused
};

} // namespace connector::host::detail
