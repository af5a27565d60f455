#pragma once

#include "cli/sync/Filter.h"
#include "cli/sync/Journal.h"
#include "cli/sync/Side.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace tarncli {

enum class Direction { up, down };

enum class StepKind {
    makeFolder, ///< in the target
    create,     ///< a file in the target
    replace,    ///< the content of one
    remove,     ///< a file of the target
    removeFolder,
    note, ///< both are the same, which the journal does not know yet
};

/// One thing to be done, and what has to be so for it to be done.
struct Step {
    StepKind kind;
    std::string place; ///< below both folders; empty: the target folder itself, which is to be made
    std::optional<FileState> source = {}; ///< of the file there; nothing: no file
    std::optional<FileState> target = {}; ///< likewise
    std::string sha256 = {};              ///< of both, for StepKind::note
};

/// What makes the target like the source, as far as it may.
struct Plan {
    struct Conflict {
        std::string place;
        std::string reason;
        bool yieldsToForce = true;
    };

    Pair pair;
    Direction direction = Direction::up;
    bool keepsVersions = false; ///< the service keeps what is replaced there as an earlier version
    Filter filter;
    std::vector<Step> steps; ///< in the order in which they are done
    std::vector<Conflict> conflicts;
    std::vector<Side::LeftOut> leftOut;
    std::uint64_t unchanged = 0; ///< files that are the same on both sides, also those to be noted

    /// How many files and folders it deletes.
    std::uint64_t removals() const;
    /// Nothing but notes.
    bool isEmpty() const;
};

/// What people read of it: one line for each step that they would see, and for each conflict.
std::string tableOf(const Plan& plan);

/// As `--plan` writes it and `tarn apply` reads it; see docs/sync.md.
nlohmann::json toJson(const Plan& plan);
/// Likewise, its text. @throws Failure (usage) when JSON cannot hold what `tarn apply` needs of it
std::string textOf(const Plan& plan);
/// @throws Failure (usage) when it is no plan
Plan planFrom(const std::string& text, const std::string& shownName);

} // namespace tarncli
