#include "tarnd/http/QueuedReply.h"

#include <memory>
#include <string>
#include <utility>

namespace tarnd {

namespace {

using ResponsePtr = std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)>;

ResponsePtr responseOf(UniqueFd file, std::uint64_t offset, std::uint64_t size)
{
    auto* const response = MHD_create_response_from_fd_at_offset64(size, file.get(), offset);
    if (response != nullptr) file.release(); // the response closes it
    return {response, &MHD_destroy_response};
}

/// A listing may be long, and is not copied.
ResponsePtr responseOf(std::string text)
{
    auto owned = std::make_unique<std::string>(std::move(text));
    auto* const response = MHD_create_response_from_buffer_with_free_callback_cls(
        owned->size(), owned->data(), [](void* self) { delete static_cast<std::string*>(self); },
        owned.get());
    if (response != nullptr) owned.release();
    return {response, &MHD_destroy_response};
}

ssize_t produce(void* self, std::uint64_t, char* data, std::size_t size)
{
    const auto& producer = *static_cast<const Producer*>(self);
    const ConnectionTable::Busy busy(producer.table, producer.descriptor);
    const auto count = producer.exchange.produce(data, size);
    if (!count) return MHD_CONTENT_READER_END_WITH_ERROR;
    return *count == 0 ? MHD_CONTENT_READER_END_OF_STREAM : static_cast<ssize_t>(*count);
}

void forget(void* self)
{
    delete static_cast<Producer*>(self);
}

ResponsePtr responseOf(Producer producer, std::optional<std::uint64_t> size)
{
    constexpr std::size_t piece = 64 * 1024; // bytes
    auto owned = std::make_unique<Producer>(producer);
    auto* const response = MHD_create_response_from_callback(size.value_or(MHD_SIZE_UNKNOWN), piece, &produce,
                                                             owned.get(), &forget);
    if (response != nullptr) owned.release();
    return {response, &MHD_destroy_response};
}

/// @param response  of the reply, whose head is added
MHD_Result queue(MHD_Connection* connection, const ResponsePtr& response, const Reply& reply,
                 AfterReply after)
{
    if (!response) return MHD_NO;
    for (const auto& [name, value] : headersOf(reply, after)) {
        if (MHD_add_response_header(response.get(), name.c_str(), value.c_str()) != MHD_YES) return MHD_NO;
    }
    return MHD_queue_response(connection, reply.status, response.get());
}

} // namespace

MHD_Result queueReply(MHD_Connection* connection, Reply reply, AfterReply after)
{
    const auto response = reply.file ? responseOf(std::move(reply.file), reply.fileOffset, reply.fileSize)
                                     : responseOf(std::move(reply.text));
    return queue(connection, response, reply, after);
}

MHD_Result queueProduced(MHD_Connection* connection, const Reply& reply, Producer producer, AfterReply after)
{
    return queue(connection, responseOf(producer, reply.sourceSize), reply, after);
}

} // namespace tarnd
