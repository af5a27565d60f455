#pragma once

#include "tarn/foundation/Export.h"
#include "tarnhost/Job.h"

#include <memory>
#include <shared_mutex>
#include <utility>

namespace boost::asio {
class thread_pool;
}

namespace connector::host {

/// The threads on which providers take messages and on which replies complete.
///
/// Any number of threads may post. Jobs start in the order posted; with more than one thread they run at the
/// same time.
class TARN_API DeliveryThreads {
public:
    /// @param count  number of threads; 0: as many as the machine has cores
    explicit DeliveryThreads(unsigned count = 0);
    /// Ends the threads after the jobs that run now; what still waits is destroyed without having run.
    /// @pre not on one of these threads
    ~DeliveryThreads();
    DeliveryThreads(const DeliveryThreads&) = delete;
    DeliveryThreads& operator=(const DeliveryThreads&) = delete;

    /// Runs `job()` later on one of the threads; once they have ended, destroys it without running it. It
    /// must not throw: nobody is left to hear of it.
    template <class F>
    void post(F job)
    {
        enqueue(Job(std::move(job)));
    }

    /// Whether the calling thread is one of these.
    bool isCurrent() const;

    /// Waits for all jobs, those that they post included, then ends the threads for good. The second call
    /// does nothing.
    /// @pre not on one of these threads
    void drain();

private:
    void enqueue(Job job);

    mutable std::shared_mutex mutex; ///< guards the pointer: whoever posts must not see the pool go
    std::unique_ptr<boost::asio::thread_pool> pool; ///< null once drained
};

} // namespace connector::host
