#include "tarnd/http/Handlers.h"

namespace tarnd {

Reply login(Call& call)
{
    auto& sessions = call.store.sessions();
    const auto id =
        sessions.login(call.request.header("x-qz-authentication-token"), call.client.addressText());
    call.caller = sessions.touch(id); // whose it is stands in the logs
    XmlWriter xml("Response");
    xml.text("TarnSessionId", id);
    xml.number("MinutesBeforeRelogin", std::uint64_t{sessions.idleMinutes()});
    return xmlReply(std::move(xml));
}

Reply logout(Call& call)
{
    call.store.sessions().logout(call.caller);
    return doneReply();
}

/// Whether the session lives was asked before any handler runs.
Reply ping(Call&)
{
    XmlWriter xml("Response");
    xml.text("Value", "pong");
    return xmlReply(std::move(xml));
}

} // namespace tarnd
