#pragma once

#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/AccessRules.h"
#include "tests/tarnd/access/ServiceUser.h"

#include <map>
#include <string>

namespace tarnd::test {

enum class Kind { file, folder };

struct MadeItem {
    Place place;
    std::string oldVersion =
        "none";                 ///< id of the version with label 1 of a file; the current one has label 2
    std::string grant = "none"; ///< id of the item reader's grant, where there ever was one
    std::string link =
        "none"; ///< public link, where the item ever was and `withLinks` is set: "/public/SECRET"
};

/// A service with one user for each actor, who share as AccessRules.h tells.
class SharedWorld {
public:
    SharedWorld();

    ServiceUser& as(Actor actor) { return users.at(actor); }

    /// The name of the user; empty for one without a session.
    static std::string nameOf(Actor actor);

    /// A new item in that state. @param owner of State::own, else it is the owner
    MadeItem make(State state, Kind kind, Actor owner = Actor::owner);

    /// All that the owner can see of what they have: what a refused operation must leave as it is.
    std::string ownersView();

    TarndProcess service;
    bool withLinks = false;

private:
    MadeItem create(Actor owner, const std::string& path, Kind kind);
    MadeItem createInState(State state, Kind kind, const std::string& name);
    void remove(const Place& place, Kind kind);
    void share(MadeItem& item);

    std::map<Actor, ServiceUser> users;
    int counter = 0;
};

/// The reply, which must be a success. @throws std::runtime_error with the error
RestReply require(RestReply reply);

} // namespace tarnd::test
