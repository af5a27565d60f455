#include "tests/tarnd/access/AccessRules.h"

namespace tarnd::test {

namespace {

const std::string login = "401 Your session has ended. Log in again.";
const std::string readOnly = "403 You may read this item but not change or share it.";
const std::string missing = "404 The path does not exist.";

bool hasSession(Actor actor)
{
    return actor != Actor::nobody && actor != Actor::linkHolder;
}

bool exists(State state)
{
    return state <= State::recreated;
}

bool isInSharedFolder(State state)
{
    return state == State::shared || state == State::deletedShared || state == State::neverShared;
}

} // namespace

std::string ruledOutcome(Actor actor, State state, Effect effect, const std::string& onOwnItem)
{
    if (!hasSession(actor)) return login;
    const bool owns = actor == Actor::owner || state == State::own;
    const bool readsFolder = actor == Actor::folderReader && isInSharedFolder(state);
    const bool readsItem =
        exists(state) && (readsFolder || (actor == Actor::itemReader && state == State::shared));

    const bool needsNoItem = effect >= Effect::makes;

    // To one's own item everything is possible that makes sense.
    if (owns && exists(state)) return onOwnItem;
    if (owns) return needsNoItem ? "200" : missing;
    if (readsItem) return effect == Effect::reads ? onOwnItem : readOnly;
    // Who sees the folder knows that a name in it is free, and that making it would be a change.
    if (readsFolder && needsNoItem) return readOnly;
    return missing;
}

} // namespace tarnd::test
