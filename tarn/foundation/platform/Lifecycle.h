#pragma once

#include "tarn/foundation/Export.h"

#include <atomic>

namespace connector::common {

/// Whether a service takes messages. The host starts and stops it; the service only reads its state.
class TARN_API Lifecycle {
public:
    virtual ~Lifecycle() = default;

    void start()
    {
        onStart();
        running = true;
    }

    void stop()
    {
        running = false;
        onStop();
    }

    bool isRunning() const { return running; }

protected:
    /// Called by `start`, before the service counts as running.
    virtual void onStart() {}

    /// Called by `stop`, after the service has ceased to count as running.
    virtual void onStop() {}

private:
    std::atomic<bool> running{false};
};

} // namespace connector::common
