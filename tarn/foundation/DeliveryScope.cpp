#include "tarn/foundation/DeliveryScope.h"

#include "tarn/foundation/WouldDeadlock.h"
#include "tarn/foundation/detail/ContextHandle.h"
#include "tarn/foundation/detail/SharedFutureState.h"

namespace connector {
namespace {

thread_local const DeliveryScope* innermost = nullptr;

} // namespace

DeliveryScope::DeliveryScope(const char* doing, const std::string* about) noexcept
    : work(doing), subject(about), outer(innermost)
{
    innermost = this;
}

DeliveryScope::~DeliveryScope()
{
    innermost = outer;
}

std::string DeliveryScope::current()
{
    if (!innermost) return {};
    return innermost->work + (innermost->subject ? *innermost->subject : std::string());
}

void detail::requireMayBlock(const std::type_info& awaited)
{
    if (!innermost) return;
    using ::foundation::core::diag::detail::demangle_typeid_name;
    throw WouldDeadlock("Waiting for a " + demangle_typeid_name(mangledName(awaited), false) +
                        " would block a delivery thread of the host, which is busy with " +
                        DeliveryScope::current() +
                        " and may be the one that the result needs. Use then() instead of get().");
}

} // namespace connector
