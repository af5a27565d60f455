#pragma once

#include "tarn/protocol/ReplyXml.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>

/// Reading of flat records from tables: one row per field, in the order in which a malformed one fails.
namespace connector::tarn {

/// An element of a reply and the member that it fills. The member's type chooses the conversion.
template <class Record, class Value>
struct Field {
    const char* element;
    Value Record::*member;
};

template <class Record, class Value>
Field(const char*, Value Record::*) -> Field<Record, Value>;

/// What the text of an element says as a member's value.
///
/// Text is taken as it stands, converted for a UTF-16 member. A flag is set by exactly "true". Numbers are
/// decimal, leading digits count, and what follows them is ignored.
/// @throws std::invalid_argument or std::out_of_range, "stoull", "stoll" (signed) or "stoul" (32 bits), for text
///         that is not a number or exceeds 64 bits; of a 32-bit number the low 32 bits count
TARN_API void readValue(const std::string& text, std::string& value);
TARN_API void readValue(const std::string& text, std::u16string& value);
TARN_API void readValue(const std::string& text, bool& value);
TARN_API void readValue(const std::string& text, std::uint64_t& value);
TARN_API void readValue(const std::string& text, std::int64_t& value);
TARN_API void readValue(const std::string& text, std::uint32_t& value);

/// Fills `record` from the descendants of `node`, row by row. An element that is missing or occurs more than once
/// leaves its member as it is.
template <class Record, class... Fields>
void readFields(const Poco::XML::Node& node, Record& record, const std::tuple<Fields...>& table)
{
    std::apply(
        [&](const auto&... fields) {
            const std::array<std::string_view, sizeof...(Fields)> tags{fields.element...};
            std::array<Only, sizeof...(Fields)> found;
            findOnly(node, tags, found);
            auto next = found.begin();
            auto read = [&](const auto& field) {
                if (auto text = (next++)->text()) readValue(*text, record.*field.member);
            };
            (read(fields), ...);
        },
        table);
}

/// The reader of a reply whose response is nothing but a table of fields, which may stand anywhere in it.
template <class Response, class... Fields>
auto fieldsReader(const std::tuple<Fields...>& table)
{
    return [&table](const Poco::XML::Document& reply) {
        auto response = std::make_unique<Response>();
        readFields(reply, *response, table);
        return response;
    };
}

} // namespace connector::tarn
