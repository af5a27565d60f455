#pragma once

#include "tarnd/http/ClientAddress.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>

namespace tarnd {

/// Keeps tokens from being guessed: the refusal of one is held back for a while, and once an address has its
/// share of refusals held back, its next login is not even looked at. A valid token is never held back.
///
/// There is no limit per user, because a token that is not valid names nobody. Callable from any thread.
class FailedLogins {
public:
    static constexpr std::chrono::seconds delay{1};
    static constexpr int atATime = 10;

    /// Counts against its address as long as it exists.
    using HeldBack = std::shared_ptr<void>;

    /// @throws ServiceError notAllowed when the address has its share of refusals held back
    void check(ClientAddress client);

    /// A login has failed. Keep what it returns until the refusal is sent. @pre this outlives it
    /// @throws ServiceError notAllowed as check does: answer with that, at once
    HeldBack add(ClientAddress client);

private:
    /// @pre mutex is held
    void refuseWhenFull(ClientAddress client) const;

    std::mutex mutex; ///< guards the member below
    std::map<ClientAddress, int> heldBack;
};

} // namespace tarnd
