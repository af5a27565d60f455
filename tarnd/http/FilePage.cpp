#include "tarnd/http/FilePage.h"

#include "tarnd/http/ContentReply.h"
#include "tarnd/http/PercentEncoding.h"

#include <algorithm>
#include <utf8.h>

namespace tarnd {

namespace {

using namespace std::string_view_literals;

struct Signature {
    std::size_t at;
    std::string_view bytes, type;
};

constexpr auto pdf = "application/pdf"sv;

constexpr Signature signatures[] = {
    {0, "\x89PNG\r\n\x1a\n"sv, "image/png"sv},
    {0, "\xff\xd8\xff"sv, "image/jpeg"sv},
    {0, "GIF8"sv, "image/gif"sv},
    {8, "WEBP"sv, "image/webp"sv},
    {4, "ftypavif"sv, "image/avif"sv},
    {0, "%PDF-"sv, pdf},
};

/// As many of the first bytes as there are; fewer where they cannot be read, since only a preview misses them.
std::string firstBytes(OpenContent& content, std::size_t most)
{
    try {
        return content.bytes.beginning(most);
    } catch (const ServiceError&) {
        return {};
    }
}

/// Empty for what is shown as text or not at all.
std::string_view shownType(OpenContent& content)
{
    constexpr std::size_t enough = 16;
    const auto head = firstBytes(content, enough);
    for (const auto& signature : signatures)
        if (std::string_view(head).substr(std::min(head.size(), signature.at)).starts_with(signature.bytes))
            return signature.type;
    return {};
}

bool isControl(char c)
{
    return (c >= 0 && c < ' ' && "\t\n\f\r"sv.find(c) == std::string_view::npos) || c == 0x7f;
}

/// What can be read as UTF-8 of the beginning; a character that the limit cuts in two is left out. Nothing when the
/// file holds anything else.
std::string readableText(OpenContent& content, std::size_t most)
{
    constexpr std::ptrdiff_t longestCharacter = 4; // bytes
    auto text = firstBytes(content, most);
    const auto end = utf8::find_invalid(text.begin(), text.end());
    const bool isCut = static_cast<std::size_t>(content.size) > text.size();
    if (text.end() - end >= (isCut ? longestCharacter : 1)) return {};
    text.erase(end, text.end());
    return std::any_of(text.begin(), text.end(), isControl) ? "" : text;
}

std::string previewOf(OpenContent& content)
{
    constexpr std::size_t most = 256 * 1024;
    const auto name = htmlEscape(content.file.name);
    const auto type = shownType(content);
    if (type == pdf)
        return R"(<object data="?view" type="application/pdf" aria-label="Preview of )" + name +
               "\"><p>This browser shows no PDF documents in a page.</p></object>";
    if (!type.empty()) return R"(<img src="?view" alt="Preview of )" + name + "\">";
    const auto text = readableText(content, most);
    if (text.empty()) return {};
    // The first line break behind the tag would be lost.
    const auto shown = "<pre tabindex=\"0\">\n" + htmlEscape(text) + "</pre>";
    const bool isWhole = text.size() == static_cast<std::size_t>(content.size);
    return shown + (isWhole ? "" : "<p>This is the beginning; the download has all of it.</p>");
}

Reply named(Reply reply, std::string_view disposition, const std::string& name, std::string_view policy)
{
    reply.headers.emplace_back("Content-Disposition",
                               std::string(disposition) + "; filename*=UTF-8''" + name);
    addSafetyHeaders(reply, policy);
    return reply;
}

} // namespace

Reply filePage(OpenContent& content, const PagePlace& place)
{
    return htmlPage(200, content.file.name,
                    htmlActions(place, "Download") + "<p>" + htmlSize(content.size) + ", changed " +
                        htmlTime(content.modified) + " UTC</p>" + previewOf(content));
}

Reply preview(const Request& request, OpenContent content)
{
    const auto type = shownType(content);
    if (type.empty()) return download(request, std::move(content));
    const auto name = percentEncode(content.file.name);
    auto reply = contentReply(request, std::move(content));
    if (reply.file || reply.source) reply.contentType = type;
    // What browsers show PDF documents with is a page of their own around the document, which a sandbox would forbid.
    return named(std::move(reply), "inline", name,
                 type == pdf ? "default-src 'none'; object-src 'self'; style-src 'unsafe-inline'; "
                               "frame-ancestors 'self'"
                             : "sandbox; default-src 'none'");
}

Reply download(const Request& request, OpenContent content)
{
    const auto name = percentEncode(content.file.name);
    return named(contentReply(request, std::move(content)), "attachment", name,
                 "sandbox; default-src 'none'");
}

} // namespace tarnd
