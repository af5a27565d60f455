#pragma once

#include <string>

namespace tarnd::test {

/// Who asks, seen from the bucket of the owner.
enum class Actor {
    stranger,     ///< has a session and no grant
    itemReader,   ///< was granted the item itself, where it is shared
    folderReader, ///< was granted the folder that holds the shared items
    nobody,       ///< has no session
    linkHolder,   ///< shows the secret of a public link as session
    owner,
};

/// What became of the item that a place names.
enum class State {
    own, ///< it is in the actor's own bucket
    shared,
    unshared,
    revoked,        ///< was shared once
    movedOut,       ///< moved out of the shared folder
    recreated,      ///< shared, deleted and made again
    deletedShared,  ///< gone from the shared folder
    neverShared,    ///< never was, in the shared folder
    deletedPrivate, ///< gone from a folder that is not shared
    neverPrivate,
    // From here on only those are asked who may see nothing.
    otherKind,    ///< a folder where a file is asked for, or the reverse
    belowFile,    ///< the path goes on below a file
    belowMissing, ///< even the folder is not there
    root,         ///< the owner's root folder
    unknownBucket,
};

constexpr State firstStateForOthersOnly = State::otherKind;

enum class Effect {
    reads,
    changes,
    makes, ///< an item of a new name
    moves, ///< an item to a new name
};

/// What must come of an operation.
/// @param onOwnItem what comes of it on an item of the actor's own: "200", a content, or status and sentence
std::string ruledOutcome(Actor actor, State state, Effect effect, const std::string& onOwnItem);

} // namespace tarnd::test
