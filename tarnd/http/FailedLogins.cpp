#include "tarnd/http/FailedLogins.h"

#include "tarnd/http/Sentences.h"

namespace tarnd {

void FailedLogins::check(ClientAddress client)
{
    const std::lock_guard lock(mutex);
    const auto found = heldBack.find(client);
    if (found != heldBack.end() && found->second >= atATime) throw sentences::tooManyFailedLogins();
}

FailedLogins::HeldBack FailedLogins::add(ClientAddress client)
{
    const std::lock_guard lock(mutex);
    ++heldBack[client];
    return {static_cast<void*>(this), [this, client](void*) {
                const std::lock_guard relock(mutex);
                if (--heldBack.at(client) == 0) heldBack.erase(client);
            }};
}

} // namespace tarnd
