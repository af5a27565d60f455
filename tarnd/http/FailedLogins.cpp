#include "tarnd/http/FailedLogins.h"

#include "tarnd/http/Sentences.h"

namespace tarnd {

void FailedLogins::check(ClientAddress client)
{
    const std::lock_guard lock(mutex);
    refuseWhenFull(client);
}

FailedLogins::HeldBack FailedLogins::add(ClientAddress client)
{
    const std::lock_guard lock(mutex);
    refuseWhenFull(client); // others may have failed since this one was checked
    ++heldBack[client];
    return {static_cast<void*>(this), [this, client](void*) {
                const std::lock_guard relock(mutex);
                if (--heldBack.at(client) == 0) heldBack.erase(client);
            }};
}

void FailedLogins::refuseWhenFull(ClientAddress client) const
{
    const auto found = heldBack.find(client);
    if (found != heldBack.end() && found->second >= atATime) throw sentences::tooManyFailedLogins();
}

} // namespace tarnd
