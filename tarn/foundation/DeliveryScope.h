#pragma once

#include "tarn/foundation/Export.h"

namespace connector {

/// Marks the calling thread, while it lives, as one on which results and the items of streams arrive.
///
/// A host puts one around whatever it runs on such a thread. Future::get, for a result that is not there yet, then
/// throws WouldDeadlock at once instead of blocking, whatever the number of threads: with one it would wait for
/// itself, and with several it takes one away from those it waits for, so that as many such waits as there are
/// threads end the same way. What is there already is returned as ever, and waits with a limit stay what they are.
class TARN_API DeliveryScope {
public:
    /// @param place  what the thread does, for the error's text; has to outlive the scope
    explicit DeliveryScope(const char* place) noexcept;
    ~DeliveryScope();
    DeliveryScope(const DeliveryScope&) = delete;
    DeliveryScope& operator=(const DeliveryScope&) = delete;

    /// What the innermost scope of this thread says; null on a thread that may block.
    static const char* current() noexcept;

private:
    const char* outer;
};

} // namespace connector
