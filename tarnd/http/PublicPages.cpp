#include "tarnd/http/PublicPages.h"

#include "tarnd/http/ContentReply.h"
#include "tarnd/http/Handlers.h"
#include "tarnd/http/PercentEncoding.h"
#include "tarnd/store/Sentences.h"

namespace tarnd {

namespace {

std::string htmlEscape(std::string_view text)
{
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

/// The link is the secret: it must not reach other sites as referrer, nor a content run as script in this origin.
void addSafetyHeaders(Reply& reply, std::string_view policy)
{
    reply.headers.emplace_back("Content-Security-Policy", policy);
    reply.headers.emplace_back("Referrer-Policy", "no-referrer");
}

Reply page(unsigned status, std::string_view title, std::string_view body)
{
    Reply reply;
    reply.status = status;
    reply.contentType = "text/html; charset=utf-8";
    const auto heading = htmlEscape(title);
    reply.text = R"(<!DOCTYPE html><html lang="en"><head><meta charset="utf-8"><title>)" + heading +
                 "</title></head><body><h1><bdi>" + heading + "</bdi></h1>" + std::string(body) +
                 "</body></html>\n";
    addSafetyHeaders(reply,
                     "default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    return reply;
}

/// `bdi` keeps a name with right-to-left marks from rearranging what stands beside it.
std::string entry(const std::string& base, const Item& item)
{
    const bool isFile = item.kind == ItemKind::file;
    return "<li><a href=\"" + base + percentEncode(item.name) + "\"><bdi>" + htmlEscape(item.name) +
           "</bdi>" + (isFile ? "</a> " + std::to_string(item.size) + " bytes" : "/</a>") + "</li>";
}

/// @param base what turns an entry's name into a link. Relative, so that links hold behind any public
/// address, and begun with "./", so that no name is taken for a scheme.
Reply folderPage(const Listing& listing, const std::string& base)
{
    std::string body = "<ul>";
    for (const auto& folder : listing.folders)
        body += entry(base, folder);
    for (const auto& file : listing.files)
        body += entry(base, file);
    body += listing.folders.empty() && listing.files.empty() ? "</ul><p>This folder is empty.</p>" : "</ul>";
    return page(200, listing.folder.name, body);
}

Reply download(const Request& request, OpenContent content)
{
    const auto name = percentEncode(content.file.name);
    auto reply = contentReply(request, std::move(content));
    reply.headers.emplace_back("Content-Disposition", "attachment; filename*=UTF-8''" + name);
    addSafetyHeaders(reply, "sandbox; default-src 'none'");
    return reply;
}

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

    std::string token;
    ItemPath below;
    std::string lastSegment; ///< still encoded
    bool endsWithSlash = false;
};

} // namespace

Reply publicErrorPage(const ServiceError& error)
{
    const auto status = statusOf(error.kind());
    if (status >= 500) return page(status, "The service failed", "<p>Please try again later.</p>");
    return page(404, "Not found", "<p>There is nothing at this address, or it is no longer shared.</p>");
}

Reply openPublicLink(Call& call)
{
    const PublicPath path(call.tail);
    auto shown = call.store.links().open(path.token, path.below);
    if (auto* content = std::get_if<OpenContent>(&shown)) {
        if (path.endsWithSlash) throw sentences::notFound();
        return download(call.request, std::move(*content));
    }
    const auto base = path.endsWithSlash ? std::string("./") : "./" + path.lastSegment + "/";
    return folderPage(std::get<Listing>(shown), base);
}

} // namespace tarnd
