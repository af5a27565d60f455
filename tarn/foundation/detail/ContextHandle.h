#pragma once

#include "tarn/foundation/platform/Context.h"
#include "tarn/foundation/platform/TypeName.h"

#include <stdexcept>
#include <typeinfo>

namespace connector {
namespace detail {

/// The mangled name without the '*' that some compilers put before names of internal linkage.
inline const char* mangledName(const std::type_info& type)
{
    const char* name = type.name();
    return *name == '*' ? name + 1 : name;
}

/// Hands `reply` on as a Resp; null stays null.
template <class Resp>
std::unique_ptr<Resp> castReply(std::unique_ptr<Message> reply)
{
    if (!reply) return nullptr;
    if (auto* typed = dynamic_cast<Resp*>(reply.get())) {
        reply.release();
        return std::unique_ptr<Resp>(typed);
    }
    const Message& found = *reply;
    using ::foundation::core::diag::detail::demangle_typeid_name;
    throw std::runtime_error(
        "Unable to cast response message type: " + demangle_typeid_name(mangledName(typeid(found)), false) +
        " to " + demangle_typeid_name(mangledName(typeid(Resp)), false));
}

} // namespace detail

template <class Resp, class Req>
Future<std::unique_ptr<Resp>> Context::handle(std::unique_ptr<Req>&& request, Address&& to)
{
    return send(std::unique_ptr<Message>(std::move(request)), std::move(to))
        .then([](Future<std::unique_ptr<Message>>&& reply) { return detail::castReply<Resp>(reply.get()); });
}

} // namespace connector
