#pragma once

#include "tarnd/store/Engine.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarnd {

struct Account {
    std::int64_t id = 0;
    std::string name;         ///< UTF-8; also the name of the user's bucket
    std::int64_t created = 0; ///< milliseconds since 1970, UTC
    bool disabled = false;
    std::int64_t quota = 0; ///< bytes that all versions together may have; 0: as many as there is room for
    std::int64_t used = 0;  ///< bytes that they have
};

/// @throws ServiceError badRequest for a text that cannot name a user: a bad path name, or one with a colon
void requireUserName(const std::string& name);

/// Who may log in. A user's token is 256 random bits as 64 hex digits; only its SHA-256 is stored, so a lost
/// token cannot be shown again, only replaced.
///
/// All calls block on the database, may run on any thread and, unlike a session, need no server to run.
class Accounts {
public:
    explicit Accounts(Engine engine) : engine(std::move(engine)) {}

    /// Makes the user with an empty root folder and returns the token. Grants waiting for this name take
    /// effect.
    /// @throws ServiceError badRequest for a name that cannot be a path segment or holds ':', conflict if
    /// taken
    std::string add(const std::string& name);

    /// All users in byte order of their names.
    std::vector<Account> list();

    /// Replaces the token and ends the user's sessions; returns the new token.
    /// @throws ServiceError badRequest for an unknown user
    std::string rotate(const std::string& name);

    /// Ends the user's sessions and lets nobody log in with the token; links of the user's do not open. Files and
    /// grants stay, and all is as before once it is enabled again.
    /// @throws ServiceError badRequest for an unknown user
    void setDisabled(const std::string& name, bool disabled);

    /// @param bytes  0: none. Less than there is already keeps that, and lets nothing be added.
    /// @throws ServiceError badRequest for an unknown user
    void setQuota(const std::string& name, std::int64_t bytes);

    /// Removes the user with sessions, handles and the grants given to the name, so that a later user of the
    /// same name inherits nothing. Files, folders, their links and the grants on them go only with `force`;
    /// without it a user whose root folder has entries is kept.
    /// @throws ServiceError badRequest for an unknown user, conflict for a user who owns data
    void remove(const std::string& name, bool force);

    /// The account that the token belongs to. @throws ServiceError loginRequired, notAllowed for a disabled one
    Account authenticate(const std::string& token);

private:
    Engine engine;
};

} // namespace tarnd
