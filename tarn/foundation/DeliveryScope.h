#pragma once

#include "tarn/foundation/Export.h"

#include <string>

namespace connector {

/// Marks the calling thread, while it lives, as one on which results and the items of streams arrive.
///
/// A host puts one around whatever it runs on such a thread. Future::get, for a result that is not there yet, then
/// throws WouldDeadlock at once instead of blocking, whatever the number of threads: with one it would wait for
/// itself, and with several it takes one away from those it waits for, so that as many such waits as there are
/// threads end the same way. What is there already is returned as ever, and waits with a limit stay what they are.
class TARN_API DeliveryScope {
public:
    /// @param work     what the thread does, for the error's text: "the reply to "
    /// @param subject  and to whom or what; null: nothing to add. Both have to outlive the scope
    explicit DeliveryScope(const char* work, const std::string* subject = nullptr) noexcept;
    ~DeliveryScope();
    DeliveryScope(const DeliveryScope&) = delete;
    DeliveryScope& operator=(const DeliveryScope&) = delete;

    /// What the innermost scope of this thread says; empty on a thread that may block.
    static std::string current();

private:
    const char* const work;
    const std::string* const subject;
    const DeliveryScope* const outer;
};

} // namespace connector
