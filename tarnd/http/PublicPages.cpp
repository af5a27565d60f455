#include "tarnd/http/PublicPages.h"

#include "tarnd/http/FilePage.h"
#include "tarnd/http/FolderArchive.h"
#include "tarnd/http/FolderPage.h"
#include "tarnd/http/Handlers.h"
#include "tarnd/store/Sentences.h"

namespace tarnd {

namespace {

/// "/TOKEN/a/b" taken apart.
struct PublicPath {
    explicit PublicPath(std::string_view tail)
    {
        if (tail.size() > 1 && tail.ends_with('/')) {
            endsWithSlash = true;
            tail.remove_suffix(1);
        }
        if (!tail.empty()) tail.remove_prefix(1);
        token = tail.substr(0, tail.find('/'));
        if (tail.size() > token.size()) below = pathOf(tail.substr(token.size()));
        lastSegment = tail.substr(tail.rfind('/') + 1);
    }

    PagePlace place() const
    {
        const std::string up = endsWithSlash ? "../" : "./";
        return {endsWithSlash ? "./" : "./" + lastSegment + "/", below.isRoot() ? "" : up};
    }

    std::string token;
    ItemPath below;
    std::string lastSegment; ///< still encoded
    bool endsWithSlash = false;
};

/// Browsers say that they take pages. All others, and whoever asks for a part, want the bytes.
bool wantsPage(const Request& request)
{
    if (request.query().has("download") || !request.headerValues("Range").empty()) return false;
    for (const auto accepted : request.headerValues("Accept"))
        if (accepted.find("text/html") != std::string_view::npos) return true;
    return false;
}

Reply openFile(const Call& call, OpenContent content, const PublicPath& path)
{
    if (path.endsWithSlash) throw sentences::notFound();
    if (call.request.query().has("view")) return preview(call.request, std::move(content));
    if (wantsPage(call.request)) return filePage(content, path.place());
    return download(call.request, std::move(content));
}

} // namespace

Reply publicErrorPage(const ServiceError& error)
{
    const auto status = statusOf(error.kind());
    if (error.kind() == ServiceError::Kind::tooMany) {
        auto reply = htmlPage(status, "Too many at a time", "<p>" + htmlEscape(error.what()) + "</p>");
        reply.headers.push_back(retrySoon());
        return reply;
    }
    if (status >= 500) return htmlPage(status, "The service failed", "<p>Please try again later.</p>");
    return htmlPage(404, "Not found", "<p>There is nothing at this address, or it is no longer shared.</p>");
}

Reply openPublicLink(Call& call)
{
    const PublicPath path(call.tail);
    auto& links = call.store.links();
    auto shown = links.open(path.token, path.below);
    if (auto* content = std::get_if<OpenContent>(&shown)) return openFile(call, std::move(*content), path);
    const auto& listing = std::get<Listing>(shown);
    if (!call.request.query().has("download"))
        return folderPage(listing, path.place(), call.request.query().text("sort"));
    return folderArchive(
        [&links, token = path.token](const ItemPath& item) { return links.open(token, item); }, path.below,
        listing);
}

} // namespace tarnd
