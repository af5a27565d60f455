#include "tarnd/http/ReceivedHead.h"

#include <cstring>
#include <microhttpd.h>

namespace tarnd {

namespace {

constexpr std::ptrdiff_t lineEnd = 2; // CR and LF, of which the library makes NULs

struct Field {
    std::string_view name, value;
};

/// @param next where the following name begins, or the body
/// @param separator bytes that may stand between the two
std::string wholeValue(const Field& field, const char* next, std::ptrdiff_t separator)
{
    const auto* end = field.value.data() + field.value.size();
    std::string value(field.value);
    // The library knows no "chunked " and would read such a body until the connection ends.
    if (!sameName(field.name, "Transfer-Encoding")) value.erase(value.find_last_not_of(" \t") + 1);
    // A line that goes on in the next one lies elsewhere altogether; it is as unwelcome.
    if (next < end || next - end > separator) value += '\0';
    return value;
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
    const auto fields = fieldsOf(connection, MHD_HEADER_KIND);
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
    const char* const end = method + info->header_size;
    RequestHead head{method, version, static_cast<std::size_t>(version - url - 1), {}};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const bool last = i + 1 == fields.size();
        head.headers.emplace_back(fields[i].name,
                                  last ? wholeValue(fields[i], end, 2 * lineEnd)
                                       : wholeValue(fields[i], fields[i + 1].name.data(), lineEnd));
    }
    return head;
}

Headers receivedTrailers(MHD_Connection* connection)
{
    Headers trailers;
    for (const auto& [name, value] : fieldsOf(connection, MHD_FOOTER_KIND))
        trailers.emplace_back(name, value);
    return trailers;
}

} // namespace tarnd
