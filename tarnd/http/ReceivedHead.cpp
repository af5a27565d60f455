#include "tarnd/http/ReceivedHead.h"

#include <algorithm>
#include <cstring>
#include <microhttpd.h>

namespace tarnd {

namespace {

constexpr std::ptrdiff_t lineEnd = 2; // CR and LF, of which the library makes NULs

struct Field {
    std::string_view name, value;

    const char* end() const { return value.data() + value.size(); }
};

/// @param next where the following name begins, or the body
/// @param separator bytes that may stand between the two
bool isFollowedBy(const Field& field, const char* next, std::ptrdiff_t separator)
{
    // A line that goes on in the next one lies elsewhere altogether; it is as unwelcome.
    return next >= field.end() && next - field.end() <= separator;
}

/// Where a trailer ends the library does not tell. Behind its buffer lies its list of the fields, so that there always
/// are bytes to look at.
bool isFollowedByEmptyLine(const Field& field)
{
    return std::all_of(field.end(), field.end() + 2 * lineEnd, [](char c) { return c == '\0'; });
}

std::string givenValue(const Field& field, bool isWhole)
{
    std::string value(field.value);
    // The library knows no "chunked " and would read such a body until the connection ends.
    if (!sameName(field.name, "Transfer-Encoding")) value.erase(value.find_last_not_of(" \t") + 1);
    if (!isWhole) value += '\0';
    return value;
}

template <class IsWhole>
Headers wholeFields(const std::vector<Field>& fields, IsWhole&& isLastWhole)
{
    Headers whole;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const bool isLast = i + 1 == fields.size();
        const bool isWhole =
            isLast ? isLastWhole(fields[i]) : isFollowedBy(fields[i], fields[i + 1].name.data(), lineEnd);
        whole.emplace_back(fields[i].name, givenValue(fields[i], isWhole));
    }
    return whole;
}

std::vector<Field> fieldsOf(MHD_Connection* connection, MHD_ValueKind kind)
{
    std::vector<Field> fields;
    MHD_get_connection_values_n(
        connection, kind,
        [](void* list, MHD_ValueKind, const char* name, std::size_t nameSize, const char* value,
           std::size_t valueSize) {
            static_cast<std::vector<Field>*>(list)->push_back({{name, nameSize}, {value, valueSize}});
            return MHD_YES;
        },
        &fields);
    return fields;
}

} // namespace

RequestHead receivedHead(MHD_Connection* connection, const char* url, const char* method, const char* version)
{
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
    const char* const end = method + info->header_size;
    const auto isLastWhole = [&](const Field& field) { return isFollowedBy(field, end, 2 * lineEnd); };
    return {method, version, static_cast<std::size_t>(version - url - 1),
            wholeFields(fieldsOf(connection, MHD_HEADER_KIND), isLastWhole)};
}

Headers receivedTrailers(MHD_Connection* connection)
{
    return wholeFields(fieldsOf(connection, MHD_FOOTER_KIND), isFollowedByEmptyLine);
}

} // namespace tarnd
