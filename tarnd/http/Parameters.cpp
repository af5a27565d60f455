#include "tarnd/http/Parameters.h"

#include "tarnd/http/PercentEncoding.h"
#include "tarnd/http/PlainText.h"
#include "tarnd/http/Sentences.h"

#include <charconv>

namespace tarnd {

namespace {

/// Ten times what any request of the interface has.
constexpr std::size_t parameterLimit = 100;

} // namespace

Parameters::Parameters(std::string_view query)
{
    while (!query.empty()) {
        const auto pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), pair.size() + 1));
        if (pair.empty()) continue;
        const auto equals = pair.find('=');
        auto name = percentDecode(pair.substr(0, equals));
        auto value =
            equals == std::string_view::npos ? std::string() : percentDecode(pair.substr(equals + 1));
        const auto [place, inserted] = values.emplace(std::move(name), std::move(value));
        if (values.size() > parameterLimit) throw sentences::tooManyParameters();
        // Of two values for one name some programs take the first and others the last.
        if (!inserted) throw sentences::repeatedParameter(plainText(place->first));
    }
}

std::string Parameters::text(std::string_view name) const
{
    const auto found = values.find(name);
    return found == values.end() ? "" : found->second;
}

std::string Parameters::required(std::string_view name) const
{
    if (!has(name)) throw sentences::missingParameter(name);
    return text(name);
}

bool Parameters::flag(std::string_view name) const
{
    if (!has(name)) return false;
    const auto value = text(name);
    if (value != "true" && value != "false") throw sentences::badParameter(name, "true or false");
    return value == "true";
}

std::optional<std::int64_t> Parameters::number(std::string_view name) const
{
    const auto value = text(name);
    if (value.empty()) return {};
    std::int64_t parsed = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), parsed);
    if (error != std::errc() || end != value.data() + value.size())
        throw sentences::badParameter(name, "a whole number");
    return parsed;
}

} // namespace tarnd
