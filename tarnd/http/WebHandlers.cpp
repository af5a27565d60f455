#include "tarnd/http/FilePage.h"
#include "tarnd/http/FolderArchive.h"
#include "tarnd/http/Handlers.h"
#include "tarnd/http/HtmlPage.h"
#include "tarnd/http/Sentences.h"
#include "tarnd/web/WebFiles.h"

namespace tarnd {

namespace {

/// Only what the service itself hands out runs or shows, and only by itself. The frame and the form are for
/// downloads.
constexpr std::string_view policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "frame-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'";

struct WebFile {
    std::string_view path, type;
    std::vector<std::string_view> parts;
};

const WebFile& webFile(std::string_view path)
{
    static const WebFile files[] = {
        {"/", "text/html; charset=utf-8", {web::appHtml}},
        {"/app.css", "text/css; charset=utf-8", {web::baseCss, web::appCss}},
        {"/app.js", "text/javascript; charset=utf-8", {web::appJs}},
        {"/favicon.ico", "image/svg+xml", {web::iconSvg}}, // where browsers look when a page names no icon
    };
    for (const auto& file : files)
        if (file.path == path) return file;
    throw sentences::unknownRoute();
}

Reply downloadFile(Call& call, const Location& location)
{
    return download(call.request, call.store.catalog().read(call.caller, location, versionOf(call)));
}

Reply downloadFolder(Call& call, const Location& location)
{
    auto& catalog = call.store.catalog();
    auto open = [&catalog, caller = call.caller,
                 bucket = location.bucket](const ItemPath& path) -> std::variant<OpenContent, Listing> {
        const Location item{path, bucket};
        if (catalog.attributes(caller, item).kind == ItemKind::file) return catalog.read(caller, item);
        return catalog.list(caller, item);
    };
    return folderArchive(std::move(open), location.path, catalog.list(call.caller, location));
}

} // namespace

Reply readWebFile(Call& call)
{
    const auto& file = webFile(call.request.path());
    Reply reply;
    reply.contentType = file.type;
    for (const auto part : file.parts)
        reply.text += part;
    addSafetyHeaders(reply, policy);
    reply.headers.emplace_back("Cross-Origin-Opener-Policy", "same-origin");
    return reply;
}

/// A browser keeps what a form brings as it comes, of any size, while what a script fetches stays in memory.
Reply downloadItem(Call& call)
{
    const auto location = itemOf(call);
    const auto item = call.store.catalog().attributes(call.caller, location);
    return item.kind == ItemKind::file ? downloadFile(call, location) : downloadFolder(call, location);
}

} // namespace tarnd
