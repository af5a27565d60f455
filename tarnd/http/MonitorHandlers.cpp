#include "tarnd/http/Handlers.h"
#include "tarnd/http/Metrics.h"

namespace tarnd {

/// The process takes requests; whether it can carry them out is the other question.
Reply tellLive(Call&)
{
    return textReply("alive\n");
}

Reply tellReady(Call& call)
{
    const auto troubles = call.store.troubles();
    if (troubles.empty()) return textReply("ready\n");
    std::string text;
    for (const auto& trouble : troubles)
        text += trouble + "\n";
    auto reply = textReply(std::move(text));
    reply.status = statusOf(ServiceError::Kind::unavailable);
    return reply;
}

Reply tellMetrics(Call& call)
{
    auto reply = textReply(call.metrics.text(call.store.numbers()));
    reply.contentType = "text/plain; version=0.0.4; charset=utf-8";
    return reply;
}

} // namespace tarnd
