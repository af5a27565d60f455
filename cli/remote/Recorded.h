#pragma once

#include "cli/service/Connection.h"

#include <string>
#include <utility>

namespace tarncli {

/// Makes a change that is written down before, for `tarn undo`. One that the service did not refuse, and whose reply
/// did not come, may have been made: that is left open.
/// @param action  returns Change::after
/// @throws what it throws
template <class Action>
void recorded(Connection& connection, const Change& change, Action action)
{
    auto& log = connection.changes();
    const auto number = log.begin(change);
    try {
        log.done(number, action());
    } catch (const std::exception&) {
        if (isRefused(std::current_exception())) log.notDone(number);
        throw;
    }
}

} // namespace tarncli
