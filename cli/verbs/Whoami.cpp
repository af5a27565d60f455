#include "cli/machine/Environment.h"
#include "cli/service/Identity.h"
#include "cli/service/LocalStore.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

/// One line of what is known, and what makes it known.
struct Fact {
    const char* name;
    std::string value;
    std::string from;
};

Fact loginOf(const Service& service, const Identity& identity, const CredentialStore& store)
{
    if (service.isLocal()) return {"login", "not needed", ""};
    if (!identity.givenToken.empty()) return {"login", "by token, for each command", "TARN_TOKEN"};
    const auto file = store.file(identity.user).string();
    if (identity.kept.sessionId.empty() && !identity.tokenCommand.empty())
        return {"login", "by token, for each session", "token_command"};
    if (identity.kept.sessionId.empty()) return {"login", "none", ""};
    return {"login", identity.canLogIn() ? "by session, renewed by token" : "by session", file};
}

void showIdentity(const Invocation& invocation)
{
    auto service = serviceFor(invocation.connection.service);
    if (service.isLocal()) {
        service.user = loginName();
        service.userFrom = "your login on this machine";
        service.endpointFrom = "no other service is named";
    }
    const CredentialStore store(service.endpoint);
    const auto identity = identify(service, store);
    const auto where =
        service.isLocal() ? "the local store in " + LocalStore().dataFolder().string() : service.endpoint;
    if (identity.user.empty()) throw notLoggedInAs("", "You are not logged in to " + where + ".");

    const Fact facts[] = {{"user", identity.user, identity.userFrom},
                          {"service", where, service.endpointFrom},
                          loginOf(service, identity, store)};
    Table table({Table::Align::left, Table::Align::left, Table::Align::left});
    nlohmann::json document;
    for (const auto& [name, value, from] : facts) {
        table.add({name, value, from.empty() ? "" : "(" + from + ")"});
        document[name] = value;
        document[name + std::string("From")] = from;
    }
    invocation.out.result(table.text(), document);
    if (!service.isLocal() && identity.kept.sessionId.empty() && !identity.canLogIn())
        throw notLoggedInAs(identity.user,
                            "You are not logged in to " + where + " as " + escaped(identity.user) + ".");
}

} // namespace

Verb whoami()
{
    return {.name = "whoami",
            .summary = "Show who you are, on which service, and how that is known",
            .examples = "  tarn whoami\n"
                        "  tarn --profile work whoami",
            .notes = "Nothing is sent: whether the service still accepts the login shows with `tarn ping`.",
            .takes = {},
            .run = showIdentity};
}

} // namespace tarncli::verbs
