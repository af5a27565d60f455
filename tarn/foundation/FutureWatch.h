#pragma once

#include "tarn/foundation/Export.h"

#include <exception>
#include <functional>
#include <memory>
#include <typeinfo>

namespace connector {

/// Hears, as long as it lives, which results of this process went lost:
///
/// - a failure that nobody looked at: neither `get` nor a continuation that called it;
/// - a promise that died without a result although somebody has its future.
///
/// Called on the thread that let go of the future or the promise, perhaps amid other work of it: it must not wait. What
/// it throws is dropped. A call that is under way while this is destroyed ends later.
class TARN_API FutureWatch {
public:
    struct Ears {
        /// Empty: nobody asks. Likewise below.
        std::function<void(const std::exception_ptr& failure)> unobserved = {};
        /// @param result  of what type it would have been
        std::function<void(const std::type_info& result)> dropped = {};
    };

    explicit FutureWatch(Ears ears);
    ~FutureWatch();
    FutureWatch(const FutureWatch&) = delete;
    FutureWatch& operator=(const FutureWatch&) = delete;

private:
    const std::shared_ptr<const Ears> ears;
};

namespace detail {

TARN_API void reportUnobserved(const std::exception_ptr& failure) noexcept;
TARN_API void reportDropped(const std::type_info& result) noexcept;

} // namespace detail
} // namespace connector
