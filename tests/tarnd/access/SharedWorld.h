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
    /// Id of the version with label 1 of a file; the current one has label 2.
    std::string oldVersion = "none";
    /// Id of the item reader's grant, where there ever was one.
    std::string grant = "none";
    /// Public link, where the item ever was and `withLinks` is set: "/public/SECRET".
    std::string link = "/public/none";
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

    std::map<Actor, ServiceUser> users;
    int counter = 0;
};

} // namespace tarnd::test
