#include "tarnd/store/ContentRemover.h"

#include <iterator>
#include <system_error>
#include <utility>

namespace tarnd {

ContentRemover::~ContentRemover()
{
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    changed.notify_all();
    if (thread.joinable()) thread.join();
}

void ContentRemover::add(std::vector<std::string> names)
{
    if (names.empty()) return;
    {
        const std::lock_guard lock(mutex);
        waiting.insert(waiting.end(), std::make_move_iterator(names.begin()),
                       std::make_move_iterator(names.end()));
        // Made when first needed: most processes over a store, such as `user add`, never remove anything.
        if (!thread.joinable()) makeThread();
    }
    changed.notify_all();
}

/// Without one, as when there are too many, the names wait for whoever adds the next: what they were removed from is
/// answered for already.
void ContentRemover::makeThread()
{
    try {
        thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
    }
}

void ContentRemover::finish()
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return (waiting.empty() && !removing) || !thread.joinable(); });
}

void ContentRemover::run()
{
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [&] { return ending || !waiting.empty(); });
        if (waiting.empty()) return; // ends only when nothing is left to remove
        const auto names = std::exchange(waiting, {});
        removing = true;
        lock.unlock(); // a request that adds names must not wait for the disk
        for (bool lastTry = false, done = false; !done && !lastTry;) {
            lastTry = isEnding();
            done = remove(names, lastTry);
        }
        lock.lock();
        removing = false;
        changed.notify_all();
    }
}

bool ContentRemover::isEnding()
{
    const std::lock_guard lock(mutex);
    return ending;
}

} // namespace tarnd
