#include "tarnd/http/HtmlPage.h"

#include "tarnd/store/Secrets.h"
#include "tarnd/store/TimeText.h"
#include "tarnd/web/WebFiles.h"

#include <array>
#include <cstdio>

namespace tarnd {

namespace {

const std::string& styleSheet()
{
    static const std::string text = std::string(web::baseCss) + std::string(web::pageCss);
    return text;
}

/// The look is named by its digest, so that nothing else that looks like a style counts as one.
const std::string& policy()
{
    static const std::string text =
        "default-src 'none'; img-src 'self'; object-src 'self'; frame-src 'self'; style-src 'sha256-" +
        base64OfHex(sha256Hex(styleSheet())) +
        "'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
    return text;
}

std::string roundedSize(std::int64_t bytes)
{
    constexpr std::string_view units = "KMGTPE";
    if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    auto size = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; size >= 1024 && unit + 1 < units.size(); ++unit)
        size /= 1024;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.*f %ciB", size < 10 ? 1 : 0, size, units[unit]);
    return text.data();
}

/// Whether a name begins with a character that turns the direction of what follows.
bool turnsDirection(std::string_view name)
{
    if (name.size() < 3) return false;
    const auto last = static_cast<unsigned char>(name[2]);
    return (name.starts_with("\xE2\x80") && last >= 0xAA && last <= 0xAE) ||
           (name.starts_with("\xE2\x81") && last >= 0xA6 && last <= 0xA9);
}

/// "gpj.exe" must not read as "exe.jpg".
std::string legibleName(std::string_view name)
{
    std::string legible;
    while (!name.empty()) {
        const bool turns = turnsDirection(name);
        turns ? legible += "\uFFFD" : legible += name.front();
        name.remove_prefix(turns ? 3 : 1);
    }
    return legible;
}

} // namespace

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

std::string htmlName(std::string_view name)
{
    return "<bdi>" + htmlEscape(legibleName(name)) + "</bdi>";
}

std::string htmlSize(std::int64_t bytes)
{
    return "<data value=\"" + std::to_string(bytes) + "\">" + roundedSize(bytes) + "</data>";
}

/// The time of day stands by itself: there is no room for it on a phone.
std::string htmlTime(std::int64_t milliseconds)
{
    constexpr std::size_t dateSize = 10, timeSize = 5;
    const auto text = timeText(milliseconds);
    return "<time datetime=\"" + text + "\">" + text.substr(0, dateSize) + " <span>" +
           text.substr(dateSize + 1, timeSize) + "</span></time>";
}

std::string htmlActions(const PagePlace& place, std::string_view label)
{
    const auto up = place.up.empty() ? "" : "<a href=\"" + place.up + "\">Up</a> ";
    const auto fetch = label.empty() ? "" : "<a href=\"?download\">" + std::string(label) + "</a>";
    return up.empty() && fetch.empty() ? "" : "<nav>" + up + fetch + "</nav>";
}

void addSafetyHeaders(Reply& reply, std::string_view contentPolicy)
{
    reply.headers.emplace_back("Content-Security-Policy", contentPolicy);
    reply.headers.emplace_back("Referrer-Policy", "no-referrer");
}

Reply htmlPage(unsigned status, std::string_view title, const std::string& body)
{
    Reply reply;
    reply.status = status;
    reply.contentType = "text/html; charset=utf-8";
    reply.text =
        R"(<!DOCTYPE html><html lang="en"><head><meta charset="utf-8">)"
        R"(<meta name="viewport" content="width=device-width"><meta name="robots" content="noindex"><title>)" +
        htmlEscape(legibleName(title)) + "</title><style>" + styleSheet() +
        "</style></head><body><main><h1>" + htmlName(title) + "</h1>" + body + "</main></body></html>\n";
    addSafetyHeaders(reply, policy());
    return reply;
}

} // namespace tarnd
