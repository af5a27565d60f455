#pragma once

#include "tarn/foundation/Export.h"
#include "tarnhost/Job.h"

#include <memory>
#include <utility>

namespace connector::host {

/// The threads on which providers take messages and on which replies complete.
///
/// Any number of threads may post. Jobs start in the order posted; with more than one thread they run at the
/// same time.
///
/// A thread without a job waits for what brings some, such as the sockets of an HTTP client. So the one that finds a
/// reply goes on with it at once, while another takes its place: waking a thread takes as long as a short request.
class TARN_API DeliveryThreads {
public:
    /// Something from outside that jobs come of.
    class Watch {
    public:
        /// Waits, and posts the jobs for what has come. One thread at a time.
        virtual void wait() = 0;

        /// On any thread: ends a wait, the next one if there is none.
        virtual void interrupt() = 0;

    protected:
        ~Watch() = default;
    };

    /// @param count  how many jobs may run at a time; 0: as many as the machine has cores
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

    /// Has one of the threads wait there from now on, whatever the others do: there is one more for each watch.
    /// @pre `watch` is dismissed before it goes. @throws std::system_error without a thread, std::runtime_error once the
    ///   threads come to an end
    void attend(Watch& watch);

    /// Returns when no thread waits there any more. Any thread, but not within its wait.
    void dismiss(Watch& watch);

    /// Whether the calling thread is one of these.
    bool isCurrent() const;

    /// Waits for all jobs, those that they post included, then ends the threads for good. The second call
    /// does nothing.
    /// @pre not on one of these threads; HTTP clients over them have stopped, or what they have under way waits for
    ///   their stop
    void drain();

private:
    class Pool;

    void enqueue(Job job);

    const std::unique_ptr<Pool> pool;
};

} // namespace connector::host
