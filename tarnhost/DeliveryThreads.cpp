#include "tarnhost/DeliveryThreads.h"

#include "tarn/foundation/DeliveryScope.h"

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <algorithm>
#include <mutex>
#include <thread>

namespace connector::host {

DeliveryThreads::DeliveryThreads(unsigned count)
    : pool(std::make_unique<boost::asio::thread_pool>(
          count != 0 ? count : std::max(1u, std::thread::hardware_concurrency())))
{
}

DeliveryThreads::~DeliveryThreads() = default;

bool DeliveryThreads::isCurrent() const
{
    std::shared_lock lock(mutex);
    return pool && pool->get_executor().running_in_this_thread();
}

void DeliveryThreads::drain()
{
    if (!pool) return;
    pool->join();
    // What was posted while the last thread ended is destroyed with the pool, after the lock: that settles
    // promises and so calls out.
    std::unique_ptr<boost::asio::thread_pool> ended;
    std::unique_lock lock(mutex);
    ended.swap(pool);
    lock.unlock();
}

void DeliveryThreads::enqueue(Job job)
{
    std::shared_lock lock(mutex);
    if (!pool) return;
    boost::asio::post(*pool, [held = std::move(job)]() mutable {
        const DeliveryScope scope("a task of the host");
        held();
    });
}

} // namespace connector::host
