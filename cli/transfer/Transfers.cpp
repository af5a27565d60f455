#include "cli/transfer/Transfers.h"

#include "cli/machine/Memory.h"
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

Transfers::Transfers(Connection& openConnection, Output& output)
    : connection(openConnection)
    , out(output)
    // Half: replies, the other programs and what the estimate does not know need the rest.
    , memoryLimit(availableMemory() / 2)
    , settled(std::make_shared<Settled>())
{
}

void Transfers::add(Transfer transfer)
{
    ++added;
    waiting.push_back({std::move(transfer)});
}

TransferReport Transfers::run()
{
    while (inFlight > 0 || !waiting.empty()) {
        while (mayStart())
            startNext();
        // Not until a reply comes: the bar has to move while large contents travel.
        for (auto& [entry, error] : settled->take(std::chrono::milliseconds(100)))
            settle(std::move(entry), error);
        out.progress().update(connection.transferredBytes(), report.done);
    }
    return std::exchange(report, {});
}

/// A content that is larger than the limit goes alone.
bool Transfers::mayStart() const
{
    if (waiting.empty() || inFlight >= connection.inFlight()) return false;
    return inFlight == 0 || bytesInFlight + waiting.front().transfer.bytes <= memoryLimit;
}

void Transfers::startNext()
{
    auto entry = std::make_unique<Entry>(std::move(waiting.front()));
    waiting.pop_front();
    ++inFlight;
    bytesInFlight += entry->transfer.bytes;
    entry->logins = connection.logins();
    try {
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

void Transfers::settle(std::unique_ptr<Entry> entry, std::exception_ptr error)
{
    --inFlight;
    bytesInFlight -= entry->transfer.bytes;
    if (error && !entry->repeated) {
        if (isAnswer(error, answers::sessionEnded)) return renewSession(std::move(entry));
        try {
            if (entry->transfer.mayRepeat(error)) return repeat(std::move(entry));
        } catch (...) {
            error = std::current_exception();
        }
    }
    if (error && !entry->transfer.forgives(error)) {
        fail(*entry, explain(error));
        if (isServiceGone(error)) giveUp();
        return;
    }
    ++report.done;
    entry->transfer.succeeded();
}

void Transfers::renewSession(std::unique_ptr<Entry> entry)
{
    if (!abandoned) {
        try {
            connection.renew(entry->logins);
        } catch (const std::exception&) {
            fail(*entry, explain(std::current_exception()));
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

void Transfers::fail(const Entry& entry, const Failure& failure)
{
    const auto told = about(entry.transfer.what, failure);
    // One alone is told by the caller, as the failure of the whole command.
    if (added > 1) out.warning(told.what());
    report.failed.push_back({entry.transfer.what, told, added > 1});
}

/// Each further request would wait for the same silence, or be refused for the same session.
void Transfers::giveUp()
{
    abandoned = true;
    report.notStarted += waiting.size();
    waiting.clear();
}

} // namespace tarncli
