#include "tarn/foundation/FutureWatch.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace connector {
namespace {

/// How many there are: most programs have none, and pay no lock and no memory.
constinit std::atomic<std::size_t> watchCount = 0;

struct Watches {
    std::mutex mutex; ///< guards what follows
    std::vector<std::shared_ptr<const FutureWatch::Ears>> all;
};

/// Never destroyed: futures may go while the process ends.
Watches& watches()
{
    static auto& only = *new Watches;
    return only;
}

template <class Telling>
void tellAll(Telling telling) noexcept
{
    if (watchCount == 0) return;
    try {
        auto& known = watches();
        std::unique_lock lock(known.mutex);
        const auto listening = known.all;
        lock.unlock();
        for (const auto& ears : listening) {
            try {
                telling(*ears);
            } catch (...) { // it must not disturb the others, nor whoever let go of the result
            }
        }
    } catch (...) { // without memory nobody hears of it
    }
}

} // namespace

FutureWatch::FutureWatch(Ears given) : ears(std::make_shared<const Ears>(std::move(given)))
{
    const std::lock_guard lock(watches().mutex);
    watches().all.push_back(ears);
    watchCount = watches().all.size();
}

FutureWatch::~FutureWatch()
{
    const std::lock_guard lock(watches().mutex);
    std::erase(watches().all, ears);
    watchCount = watches().all.size();
}

void detail::reportUnobserved(const std::exception_ptr& failure) noexcept
{
    tellAll([&](const FutureWatch::Ears& ears) {
        if (ears.unobserved) ears.unobserved(failure);
    });
}

void detail::reportDropped(const std::type_info& result) noexcept
{
    tellAll([&](const FutureWatch::Ears& ears) {
        if (ears.dropped) ears.dropped(result);
    });
}

} // namespace connector
