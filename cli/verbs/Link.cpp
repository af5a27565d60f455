#include "cli/remote/Answer.h"
#include "cli/remote/PublicLinks.h"
#include "cli/remote/Requests.h"
#include "cli/terminal/QrCode.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verb.h"
#include "tarn/publiclinks/PublicLinkMessages.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using nlohmann::json;

struct Arguments {
    std::string path;
    std::string expire;
    std::string revoked;
    bool qr = false;
    bool list = false;
};

std::uint64_t endAfter(const std::string& age)
{
    const auto lifetime = parseAge(age);
    if (!lifetime || *lifetime == 0)
        throw usageError("\"" + escaped(age) + "\" is not a time, such as 12h, 7d or 2w.");
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch());
    return static_cast<std::uint64_t>(now.count()) + *lifetime;
}

/// The link that does not end comes by the request that every service knows.
std::string makeLink(Connection& connection, const RemotePath& item, std::uint64_t expires)
{
    if (expires == 0)
        return toUtf8(connection
                          .call([&] {
                              return connection.files().getPublicAccessUrl(
                                  requestFor<PublicAccessUrlGet>(item));
                          })
                          ->url);
    const auto made = connection.call([&] {
        auto request = requestFor<PublicLinkCreate>(item);
        request->expires = expires;
        return connection.links().createLink(std::move(request));
    });
    // A link that is taken for one that ends, and does not, would be worse than none.
    requireConfirmed(made->expires == expires, "the end of the link");
    return toUtf8(made->url);
}

void warn(Output& out, const RemotePath& item, bool opensFolder, bool forThisMachine)
{
    if (opensFolder)
        out.warning("The link opens the whole folder " + item.quoted() + ", also what comes into it later.");
    if (forThisMachine)
        out.warning("The link works on this machine only; other machines need a service with --public-url.");
}

void printLink(const Invocation& invocation, const Arguments& arguments)
{
    const auto item = addressable(arguments.path);
    const auto expires = arguments.expire.empty() ? 0 : endAfter(arguments.expire);
    auto connection = invocation.connect();
    const auto opensFolder = isFolder(attributesOf(connection, item));
    const auto url = naming(item, [&] { return makeLink(connection, item, expires); });
    // A reply without one reads as an empty link, which a script would go on with.
    if (url.empty())
        throw Failure(ExitCode::failure, "The service did not return a link for " + item.quoted() + ".");
    const bool forThisMachine = isForThisMachineOnly(url);
    warn(invocation.out, item, opensFolder, forThisMachine);
    if (expires != 0) invocation.out.message("The link ends " + humanTime(expires) + ".");
    json document{
        {"path", item.text()}, {"url", url}, {"folder", opensFolder}, {"thisMachineOnly", forThisMachine}};
    if (expires != 0) document["expires"] = expires;
    const bool shown = arguments.qr && !invocation.out.isJson();
    invocation.out.result(escaped(url) + "\n" + (shown ? qrCode(url, ::isatty(STDOUT_FILENO) == 1) : ""),
                          document);
}

void printLinks(const Invocation& invocation)
{
    auto connection = invocation.connect();
    using enum Table::Align;
    Table table({left, left, left}, {"ID", "ENDS", "PATH"});
    auto documents = json::array();
    for (const auto& link : listLinks(connection)) {
        const bool opensFolder = link.type == "FOLDER";
        const auto path = toUtf8(link.path);
        table.add({link.linkId, link.expires == 0 ? "never" : humanTime(link.expires),
                   opensFolder && path != "/" ? path + "/" : path});
        json document{{"id", link.linkId},
                      {"path", path},
                      {"bucket", toUtf8(link.bucket)},
                      {"url", toUtf8(link.url)},
                      {"folder", opensFolder}};
        if (link.expires != 0) document["expires"] = link.expires;
        documents.push_back(std::move(document));
    }
    invocation.out.list(table.text(), "links", documents);
}

void revokeLinks(const Invocation& invocation, const std::string& what)
{
    auto connection = invocation.connect();
    const auto meant = chooseLinks(listLinks(connection), what, connection.user());
    if (meant.empty())
        throw Failure(ExitCode::notFound,
                      "You have no link \"" + escaped(what) + "\"; `tarn link --list` lists them.");
    auto ids = json::array();
    for (const auto& link : meant) {
        connection.call([&] {
            auto request = std::make_unique<PublicLinkRevoke>();
            request->linkId = link.linkId;
            return connection.links().revokeLink(std::move(request));
        });
        ids.push_back(link.linkId);
    }
    invocation.out.message("Revoked " + counted(meant.size(), "link") + ".");
    invocation.out.result("", {{"revoked", ids}});
}

void run(const Invocation& invocation, const Arguments& arguments)
{
    const bool makes = !arguments.path.empty();
    if (makes + arguments.list + !arguments.revoked.empty() != 1)
        throw usageError("Give a PATH, --list, or --revoke with what to revoke.");
    if (!makes && (arguments.qr || !arguments.expire.empty()))
        throw usageError("--expire and --qr go with a PATH.");
    if (makes) return printLink(invocation, arguments);
    arguments.list ? printLinks(invocation) : revokeLinks(invocation, arguments.revoked);
}

} // namespace

Verb link()
{
    const auto given = std::make_shared<Arguments>();
    return {.name = "link",
            .summary = "Make, list and revoke links that open a file or folder without logging in",
            .examples = "  tarn link /photo.jpg\n"
                        "  tarn link --expire 7d /photos\n"
                        "  tarn link --list\n"
                        "  tarn link --revoke /photos",
            .notes = "A link without --expire does not end, and is the same each time. It opens a folder "
                     "with all that is in it. Revoked or ended, it answers as one that never was; a new "
                     "one is another link. --list shows ids, which open nothing; with --json also the "
                     "links themselves.",
            .takes = {{"PATH", &given->path, "File or folder", {.words = Words::remote}},
                      {"--expire",
                       &given->expire,
                       "How long the link works, such as 12h, 7d or 2w; default: for ever",
                       {.valueName = "TIME"}},
                      {"--qr", &given->qr, "Draw the link as a QR code, too"},
                      {"--list", &given->list, "List the links that you have made and that have not ended"},
                      {"--revoke",
                       &given->revoked,
                       "End a link: its URL, its id, or all links to this path",
                       {.valueName = "LINK", .words = Words::remote}}},
            .run = [given](const Invocation& invocation) { run(invocation, *given); }};
}

} // namespace tarncli::verbs
