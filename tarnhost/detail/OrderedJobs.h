#pragma once

#include "tarnhost/DeliveryThreads.h"

#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::host::detail {

/// Jobs on the delivery threads that run one after another, in the order posted. Always owned by a shared_ptr.
class OrderedJobs : public std::enable_shared_from_this<OrderedJobs> {
public:
    explicit OrderedJobs(std::shared_ptr<DeliveryThreads> deliveryThreads)
        : threads(std::move(deliveryThreads))
    {
    }

    /// As DeliveryThreads::post.
    template <class F>
    void post(F job)
    {
        Job held(std::move(job));
        {
            std::lock_guard lock(mutex);
            jobs.push_back(std::move(held));
            if (std::exchange(running, true)) return;
        }
        threads->post(Run(shared_from_this()));
    }

private:
    /// Runs all jobs there are. Gone without having run, since the threads have ended, it takes them with it: they may
    /// own what owns this.
    struct Run {
        explicit Run(std::shared_ptr<OrderedJobs> of) : order(std::move(of)) {}

        Run(Run&&) = default;
        Run& operator=(Run&&) = delete;

        ~Run()
        {
            if (!order) return;
            while (order->next()) {
            }
        }

        void operator()()
        {
            const auto taken = std::move(order);
            while (auto job = taken->next())
                job();
        }

        std::shared_ptr<OrderedJobs> order;
    };

    Job next()
    {
        std::lock_guard lock(mutex);
        if (jobs.empty()) {
            running = false;
            return {};
        }
        auto job = std::move(jobs.front());
        jobs.pop_front();
        return job;
    }

    const std::shared_ptr<DeliveryThreads> threads;
    std::mutex mutex; ///< guards the two below; jobs run and go without it
    std::deque<Job> jobs;
    bool running = false; ///< a Run is posted or under way
};

} // namespace connector::host::detail
