#include "tarnd/store/ContentRemover.h"

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
        if (waiting.empty()) return;
        const auto files = std::exchange(waiting, {});
        removing = true;
        lock.unlock();
        for (const auto& file : files)
            ::unlink(file.c_str()); // what stays is an orphan, which the next start removes
        lock.lock();
        removing = false;
        changed.notify_all();
    }
}

} // namespace tarnd
