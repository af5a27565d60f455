#include "tarnd/store/ContentRemover.h"

#include "tarnd/store/RemovalTurn.h"

#include <unistd.h>

#include <iterator>
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

void ContentRemover::add(std::vector<std::filesystem::path> files)
{
    if (files.empty()) return;
    {
        const std::lock_guard lock(mutex);
        waiting.insert(waiting.end(), std::make_move_iterator(files.begin()),
                       std::make_move_iterator(files.end()));
        // Made when first needed: most processes over a store, such as `user add`, never remove anything.
        if (!thread.joinable()) thread = std::thread([this] { run(); });
    }
    changed.notify_all();
}

void ContentRemover::finish()
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return waiting.empty() && !removing; });
}

void ContentRemover::run()
{
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [&] { return ending || !waiting.empty(); });
        if (waiting.empty()) return; // ends only when nothing is left to remove
        const auto files = std::exchange(waiting, {});
        removing = true;
        lock.unlock(); // a request that adds files must not wait for the disk
        remove(files);
        lock.lock();
        removing = false;
        changed.notify_all();
    }
}

void ContentRemover::remove(const std::vector<std::filesystem::path>& files)
{
    for (;;) {
        const bool lastTry = isEnding();
        const RemovalTurn turn(dataDir, RemovalTurn::For::removing,
                               std::chrono::milliseconds(lastTry ? 2000 : 100));
        for (const auto& file : files)
            if (turn) ::unlink(file.c_str()); // what stays is an orphan, which the next start removes
        if (turn || lastTry) return;
    }
}

bool ContentRemover::isEnding()
{
    const std::lock_guard lock(mutex);
    return ending;
}

} // namespace tarnd
