#pragma once

#include "tarn/foundation/FutureWatch.h"

#include <memory>
#include <string>
#include <vector>

namespace tarntesting {

/// Finds what the code under test forgets, from here to its own end:
///
///     LostResults lost;
///     …
///     EXPECT_THAT(lost.dropped(), IsEmpty());
///
/// It hears of all threads of the process. What is still under way when it is asked, it cannot know.
class TARN_API LostResults {
public:
    LostResults();
    ~LostResults();
    LostResults(const LostResults&) = delete;
    LostResults& operator=(const LostResults&) = delete;

    /// What promises would have given that died without a result although somebody has their future: the name of each
    /// type, "int".
    std::vector<std::string> dropped() const;

    /// What the failures say that nobody looked at.
    std::vector<std::string> unobserved() const;

private:
    struct Notes;
    const std::shared_ptr<Notes> notes;
    const connector::FutureWatch watch;
};

} // namespace tarntesting
