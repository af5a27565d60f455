#include "tarn/foundation/DeliveryScope.h"

#include "tarn/foundation/WouldDeadlock.h"
#include "tarn/foundation/detail/ContextHandle.h"
#include "tarn/foundation/detail/SharedFutureState.h"

#include <string>

namespace connector {
namespace {

thread_local const char* innermost = nullptr;

} // namespace

DeliveryScope::DeliveryScope(const char* place) noexcept : outer(innermost)
{
    innermost = place;
}

DeliveryScope::~DeliveryScope()
{
    innermost = outer;
}

const char* DeliveryScope::current() noexcept
{
    return innermost;
}

void detail::requireMayBlock(const std::type_info& awaited)
{
    if (!innermost) return;
    using ::foundation::core::diag::detail::demangle_typeid_name;
    throw WouldDeadlock("Waiting for a " + demangle_typeid_name(mangledName(awaited), false) +
                        " would block a delivery thread of the host, which is busy with " + innermost +
                        " and may be the one that the result needs. Use then() instead of get().");
}

} // namespace connector
