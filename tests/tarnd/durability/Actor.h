#pragma once

#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/ServiceUser.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tarnd::test {

/// A user of the service with what its replies have told. Copies go on from the same point.
struct Actor {
    TarndProcess* service;
    std::string name = {};
    ServiceUser user{{}};
    std::string token = {}, handle = {}, grant = {}, link = {}; ///< the last that were told
    std::string trouble = {};                                   ///< why the last change got no reply

    /// `tarnd user VERB NAME OPTION` as a reply: 200 when it succeeds, otherwise 0.
    RestReply command(const std::string& verb, const std::string& option = {}) const;
};

/// One change of what the service stores.
struct Change {
    std::string name;
    std::function<RestReply(Actor&)> send;

    /// The status of the reply, 0 when none came.
    int make(Actor& actor) const;
};

/// Every kind of change, in an order in which each succeeds and after which nothing of the actor is left.
const std::vector<Change>& changes();

} // namespace tarnd::test
