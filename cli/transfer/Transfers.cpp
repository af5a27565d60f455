#include "cli/transfer/Transfers.h"

#include "cli/terminal/Output.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace tarncli {

using connector::Future;

/// Where continuations leave what they have heard.
struct Transfers::Settled {
    using Item = std::pair<std::unique_ptr<Entry>, std::exception_ptr>;

    void put(Item item)
    {
        {
            const std::lock_guard lock(mutex);
            items.push_back(std::move(item));
        }
        arrived.notify_one();
    }

    std::deque<Item> take(std::chrono::milliseconds limit)
    {
        std::unique_lock lock(mutex);
        arrived.wait_for(lock, limit, [this] { return !items.empty(); });
        return std::exchange(items, {});
    }

    std::mutex mutex; ///< guards `items`
    std::condition_variable arrived;
    std::deque<Item> items;
};

namespace {

constexpr std::uint64_t shortContent = 64 * 1024; // bytes
constexpr unsigned unreachableTold = 4;           ///< failures, without -v

std::exception_ptr errorOf(Future<bool>&& result)
{
    try {
        result.get();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

} // namespace

Transfers::Transfers(Connection& openConnection, Output& output, MovedBytes movedBytes)
    : connection(openConnection)
    , out(output)
    , moved(std::move(movedBytes))
    , settled(std::make_shared<Settled>())
{
}

void Transfers::add(Transfer transfer)
{
    ++added;
    waiting.push_back({std::move(transfer), connection.retries()});
}

void Transfers::addFirst(Transfer transfer)
{
    ++added;
    waiting.push_front({std::move(transfer), connection.retries()});
}

TransferReport Transfers::run()
{
    while (load > 0 || !waiting.empty()) {
        while (mayStart())
            startNext();
        // Not until a reply comes: the bar has to move while large contents travel.
        for (auto& [entry, error] : settled->take(std::chrono::milliseconds(100)))
            settle(std::move(entry), error);
        out.progress().update(*moved, report.done);
    }
    return std::exchange(report, {});
}

unsigned Transfers::loadOf(const Transfer& transfer) const
{
    return transfer.bytes <= shortContent ? 1 : connection.inFlight().shortForOne;
}

/// One that has to pause stands in front and holds up all behind it: they would be interrupted as well.
bool Transfers::mayStart() const
{
    if (waiting.empty() || waiting.front().notBefore > Clock::now()) return false;
    const auto& [most, shortForOne] = connection.inFlight();
    return load + loadOf(waiting.front().transfer) <= most * shortForOne;
}

void Transfers::startNext()
{
    auto entry = std::make_unique<Entry>(std::move(waiting.front()));
    waiting.pop_front();
    load += loadOf(entry->transfer);
    try {
        entry->logins = connection.logins();
        if (isDoneAlready(*entry)) return settled->put({std::move(entry), nullptr});
        auto result = entry->transfer.start();
        static_cast<void>(
            result.then([sent = std::move(entry), target = settled](Future<bool>&& reply) mutable {
                target->put({std::move(sent), errorOf(std::move(reply))});
            }));
    } catch (...) {
        // What could not even be sent fails as a reply would, in its turn.
        settled->put({std::move(entry), std::current_exception()});
    }
}

/// Of one that was interrupted. @throws the interruption when nobody can tell
bool Transfers::isDoneAlready(Entry& entry)
{
    const auto error = std::exchange(entry.error, nullptr);
    if (!error || !isUnknownOutcome(error)) return false;
    try {
        if (const auto done = entry.transfer.wasDone()) return *done;
    } catch (const std::exception&) { // that the look failed as well is not what people need to know
    }
    entry.retries = Retries(0); // another look would tell no more
    std::rethrow_exception(error);
}

void Transfers::settle(std::unique_ptr<Entry> entry, std::exception_ptr error)
{
    load -= loadOf(entry->transfer);
    if (error && !entry->repeated) {
        if (isNotLoggedIn(error)) return renewSession(std::move(entry));
        try {
            if (entry->transfer.mayRepeat(error)) return repeat(std::move(entry));
        } catch (...) {
            error = std::current_exception();
        }
    }
    if (error && repeatsLater(entry, error)) return;
    conclude(*entry, error);
}

void Transfers::conclude(const Entry& entry, const std::exception_ptr& error)
{
    const bool isGone = error && isServiceGone(error);
    if (!error || entry.transfer.forgives(error)) {
        ++report.done;
        entry.transfer.succeeded();
    } else {
        fail(entry, error);
    }
    if (isGone) giveUp();
}

void Transfers::renewSession(std::unique_ptr<Entry> entry)
{
    if (!abandoned) {
        try {
            connection.renew(entry->logins);
        } catch (const std::exception&) {
            fail(*entry, std::current_exception());
            return giveUp();
        }
    }
    repeat(std::move(entry));
}

void Transfers::repeat(std::unique_ptr<Entry> entry)
{
    if (abandoned) {
        ++report.notStarted;
        return;
    }
    entry->repeated = true;
    waiting.push_front(std::move(*entry)); // ahead of the others: its turn had come
}

bool Transfers::repeatsLater(std::unique_ptr<Entry>& entry, const std::exception_ptr& error)
{
    if (abandoned || !(isTransient(error) || isUnknownOutcome(error))) return false;
    const auto pause = entry->retries.next();
    if (!pause) return false;
    connection.tellOfPause(error);
    out.detail(about(entry->transfer.what, explain(error)).what() + std::string(" Trying again."));
    entry->error = error;
    entry->notBefore = Clock::now() + *pause;
    waiting.push_front(std::move(*entry));
    return true;
}

void Transfers::fail(const Entry& entry, std::exception_ptr error)
{
    try {
        entry.transfer.failed(error);
    } catch (...) {
        error = std::current_exception();
    }
    const auto told = about(entry.transfer.what, explain(error)).on(entry.transfer.item);
    // Many were under way when the service went, and failed for one reason.
    const bool isRepetition = told.code() == ExitCode::unreachable && ++unreachable > unreachableTold;
    // One alone is told by the caller, as the failure of the whole command.
    if (added > 1) isRepetition ? out.detail(told.what()) : out.warning(told.what());
    report.failed.push_back({entry.transfer.what, told, added > 1});
}

/// Each further request would wait for the same silence, or be refused for the same session.
void Transfers::giveUp()
{
    abandoned = true;
    for (const auto& entry : std::exchange(waiting, {})) {
        if (entry.error && !entry.transfer.forgives(entry.error))
            fail(entry, entry.error);
        else
            ++report.notStarted;
    }
}

} // namespace tarncli
