#include "tarn/protocol/detail/ThreadNames.h"

#include <algorithm>

namespace connector::tarn::detail {
namespace {

constexpr std::size_t usualRoom = 509; // a prime, as the pool wants it

} // namespace

ThreadNames& ThreadNames::ofThisThread()
{
    static thread_local ThreadNames names;
    return names;
}

Poco::XML::NamePool* ThreadNames::poolFor(std::size_t names)
{
    if (names > room || !pool) {
        // A quarter stays free, where a search for a place in a full pool would walk all of it.
        const auto size = std::max(usualRoom, names + names / 3 + 1);
        plain.clear();
        pool = new Poco::XML::NamePool(static_cast<unsigned long>(size));
        room = size - size / 4;
    }
    return pool;
}

const std::string* ThreadNames::find(std::string_view name, const ReplyLimits& limits)
{
    if (name.size() > limits.nameLength) return nullptr;
    auto known = plain.find(name);
    if (known == plain.end()) {
        if (room == 0 || name.find(':') != name.npos) return nullptr;
        known = plain.emplace(name).first;
        --room;
    }
    // Names of other documents count as well: who allows fewer than a pool holds has them counted exactly, later.
    return plain.size() <= limits.names ? &*known : nullptr;
}

} // namespace connector::tarn::detail
