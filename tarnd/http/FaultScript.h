#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tarnd {

/// What goes wrong with one request.
struct Fault {
    enum class Kind {
        wait,   ///< it is answered after `time`
        refuse, ///< it is refused with `number`, a status from 400 on, and changes nothing
        drop,   ///< its connection is reset before it is done
        lose,   ///< it is done, and its connection closed without a reply
        cut,    ///< it is done, and the reply ends after `number` bytes of its body
    };

    Kind kind = Kind::wait;
    std::uint64_t number = 0;
    std::chrono::milliseconds time{0};
};

/// Faults on purpose, for whoever tests how a program bears them. A line for each:
///
///     readFile #2 cut 10         the second readFile ends after 10 bytes of its content
///     any every 3 wait 200ms     every third request, whatever it is, waits
///     createFile 5% lose         one of twenty is done without an answer, by chance
///     login always refuse 503
///     seed 42                    repeats the chances of an earlier run
///
/// Of several that fit, the first stands. Requests count for each line by itself. Lines may be empty, or end in a
/// comment after `;`. Callable from any thread.
class FaultScript {
public:
    /// @throws std::invalid_argument "line 3: …" with what is wrong and what could stand there
    explicit FaultScript(std::string_view text);

    /// The fault of a request with this method and target (path and query), if it has one; counts the request.
    std::optional<Fault> next(std::string_view method, std::string_view target);

    /// The lines that have not struck so far, as they were written.
    std::vector<std::string> unfired() const;

    /// What the chances come from: with the same requests in the same order, `seed NUMBER` repeats them.
    std::uint32_t seed() const { return chosenSeed; }

private:
    struct Line {
        std::string text;
        const struct Operation* operation = nullptr; ///< null: any
        enum class When { nth, every, chance } when = When::every;
        std::uint64_t number = 1; ///< ordinal, period or percentage
        Fault fault;
        std::uint64_t seen = 0;
        bool fired = false;
    };

    static Line parse(std::string_view text);
    bool strikes(Line& line);

    std::uint32_t chosenSeed;
    std::mt19937 random;
    mutable std::mutex mutex; ///< guards what counts
    std::vector<Line> lines;
};

/// The script in force, if there is one; may change while requests come. Callable from any thread.
class Faults {
public:
    void set(std::shared_ptr<FaultScript> theScript)
    {
        const std::lock_guard lock(mutex);
        script = std::move(theScript);
    }

    std::shared_ptr<FaultScript> get() const
    {
        const std::lock_guard lock(mutex);
        return script;
    }

private:
    mutable std::mutex mutex;
    std::shared_ptr<FaultScript> script;
};

} // namespace tarnd
