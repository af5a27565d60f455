#include "tests/tarnd/access/AccessRules.h"

namespace tarnd::test {

namespace {

const std::string done = "200";
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

bool isReading(Operation operation)
{
    return operation <= Operation::listFolder;
}

bool needsNoItem(Operation operation)
{
    return operation >= Operation::createFile;
}

/// To one's own item everything is possible that makes sense.
std::string onOwnItem(Operation operation)
{
    switch (operation) {
    case Operation::createFile:
    case Operation::openCreating:
        return "409 The file already exists.";
    case Operation::createFolder:
        return "409 The folder already exists.";
    case Operation::moveOnto:
        return "409 The target of the move already exists.";
    case Operation::grantUnknown:
        return "400 There is no user named \"zoe\".";
    default:
        return done;
    }
}

} // namespace

std::string ruledOutcome(Actor actor, Operation operation, State state)
{
    if (!hasSession(actor)) return login;
    const bool owns = actor == Actor::owner || state == State::own;
    const bool readsFolder = actor == Actor::folderReader && isInSharedFolder(state);
    const bool readsItem =
        exists(state) && (readsFolder || (actor == Actor::itemReader && state == State::shared));

    if (owns && exists(state)) return onOwnItem(operation);
    if (owns) return needsNoItem(operation) ? done : missing;
    if (readsItem) return isReading(operation) ? done : readOnly;
    // Who sees the folder knows that a name in it is free, and that making it would be a change.
    if (readsFolder && needsNoItem(operation)) return readOnly;
    return missing;
}

} // namespace tarnd::test
