#pragma once

#include <chrono>
#include <optional>

namespace tarncli {

/// How often one thing is tried again, and the pauses before: half a second, then each about twice as long as the
/// one before. Chance shortens or lengthens them, so that many clients of a service that was away do not come back at
/// the same moment.
class Retries {
public:
    explicit Retries(unsigned most) : left(most) {}

    /// The pause before the next try; nothing when there have been enough.
    std::optional<std::chrono::milliseconds> next();

private:
    unsigned left;
    std::chrono::milliseconds pause{500};
};

} // namespace tarncli
