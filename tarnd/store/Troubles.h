#pragma once

#include "tarnd/store/Engine.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tarnd {

/// What would make requests fail: asked by whoever decides whether this process gets any. All calls may run on
/// any thread.
class Troubles {
public:
    explicit Troubles(Engine engine) : engine(std::move(engine)) {}

    /// One sentence each, fit for anybody; empty when all is well. Looks at most once a second, so that whoever asks
    /// without end costs nothing.
    std::vector<std::string> now();

private:
    std::vector<std::string> look();

    Engine engine;
    std::mutex mutex; ///< guards the members below; held while looking, so that one looks for all who ask
    std::optional<std::chrono::steady_clock::time_point> looked;
    std::vector<std::string> found;
};

} // namespace tarnd
