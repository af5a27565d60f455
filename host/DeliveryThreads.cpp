#include "host/DeliveryThreads.h"

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <algorithm>
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
    return pool->get_executor().running_in_this_thread();
}

void DeliveryThreads::drain()
{
    pool->join();
}

void DeliveryThreads::enqueue(std::unique_ptr<Job> job)
{
    boost::asio::post(*pool, [held = std::move(job)] { held->run(); });
}

} // namespace connector::host
