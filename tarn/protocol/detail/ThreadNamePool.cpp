#include "tarn/protocol/detail/ThreadNamePool.h"

#include <Poco/AutoPtr.h>

#include <algorithm>

namespace connector::tarn::detail {
namespace {

constexpr std::size_t usualRoom = 509; // a prime, as the pool wants it

struct Pool {
    Poco::AutoPtr<Poco::XML::NamePool> names;
    std::size_t room = 0; ///< left, if no document had a name that another has
};

} // namespace

Poco::XML::NamePool* poolFor(std::size_t names)
{
    static thread_local Pool pool;
    if (names > pool.room) {
        // A quarter stays free, where a search for a place in a full pool would walk all of it.
        const auto size = std::max(usualRoom, names + names / 3 + 1);
        pool.names = new Poco::XML::NamePool(static_cast<unsigned long>(size));
        pool.room = size - size / 4;
    }
    pool.room -= names;
    return pool.names;
}

} // namespace connector::tarn::detail
