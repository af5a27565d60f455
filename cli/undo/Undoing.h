#pragma once

#include "cli/transfer/Transfers.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarncli {

/// One thing that takes a part of a command back.
struct UndoStep {
    const char* what; ///< "delete", "deleteFolder", "restore", "move", "revoke", "grant"
    std::string path;
    std::string detail = {}; ///< for people: where to, which version, whose
    std::function<connector::Future<bool>()> send;
    /// Whether it is as it should be: asked when nobody knows.
    std::function<bool()> isDone;
};

struct UndoPlan {
    struct Remark {
        std::string path;
        std::string text;
    };

    std::vector<UndoStep> steps;     ///< in the order in which they are done
    std::vector<Remark> lost;        ///< what cannot be taken back, since nothing keeps it
    std::vector<Remark> differences; ///< what is not as the command left it: then nothing should be done
};

/// What takes the command back, as everything is now. Of a command that was killed, what it had begun is looked at: was
/// it made, by this command and not by another? What is as it was before needs no step. Changes nothing.
/// @throws Failure
UndoPlan planUndo(Connection& connection, Output& out, const LoggedCommand& command);

/// Does it; what fails is told, and the rest is done.
TransferReport takeBack(Connection& connection, Output& out, const UndoPlan& plan);

} // namespace tarncli
