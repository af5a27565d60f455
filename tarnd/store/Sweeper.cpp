#include "tarnd/store/Sweeper.h"

#include "tarnd/store/Recovery.h"
#include "tarnd/store/ServiceError.h"

#include <cstdio>

namespace tarnd {

Sweeper::Sweeper(Engine engine, std::chrono::seconds interval, std::function<void()> requireOwn)
    : engine(std::move(engine))
    , interval(interval)
    , requireOwn(std::move(requireOwn))
    , thread([this] { run(); })
{
}

Sweeper::~Sweeper()
{
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    end.notify_all();
    thread.join();
}

bool Sweeper::isEnding()
{
    const std::lock_guard lock(mutex);
    return ending;
}

void Sweeper::run()
{
    for (;;) {
        sweepOnce();
        std::unique_lock lock(mutex);
        if (end.wait_for(lock, interval, [&] { return ending; })) return;
    }
}

void Sweeper::sweepOnce()
{
    try {
        requireOwn();
        const auto report = sweep(engine, [this] { return isEnding(); });
        if (report.abandonedUploads + report.orphanedContents > 0)
            std::fprintf(stderr, "tarnd: removed %zu unfinished uploads and %zu contents that no file has\n",
                         report.abandonedUploads, report.orphanedContents);
    } catch (const ServiceError& error) {
        std::fprintf(stderr, "tarnd: contents that no file has were not looked for: %s %s\n", error.what(),
                     error.detail().c_str());
    }
}

} // namespace tarnd
