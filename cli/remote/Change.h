#pragma once

#include "cli/service/Connection.h"

#include <thread>

namespace tarncli {

/// Makes a change as `connection.call(operation)` does. When the connection was lost so that nobody knows whether it
/// was made, looks before it is sent again.
/// @param isMade  looks; what it throws counts as not to be known
/// @throws what the operation fails with
template <class Operation, class Look>
void makeChange(Connection& connection, Operation operation, Look isMade)
{
    for (auto left = connection.retries();;) {
        try {
            connection.call(operation);
            return;
        } catch (const std::exception&) {
            const auto error = std::current_exception();
            const auto pause = isUnknownOutcome(error) ? left.next() : std::nullopt;
            if (!pause) throw;
            std::this_thread::sleep_for(*pause);
            try {
                if (isMade()) return;
            } catch (const std::exception&) { // that the look failed as well is not what people need to know
                std::rethrow_exception(error);
            }
        }
    }
}

} // namespace tarncli
