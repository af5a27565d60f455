#include "tarnhost/DeliveryThreads.h"

#include "tarn/foundation/DeliveryScope.h"
#include "tarnhost/HostErrors.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace connector::host {

class DeliveryThreads::Pool {
public:
    explicit Pool(unsigned count) : most(count) {}

    ~Pool() { end(Stage::ended); }

    void start() { addThreads(most); }

    void enqueue(Job job);
    void attend(Watch& watch);
    void dismiss(Watch& watch);

    void drain() { end(Stage::draining); }

    bool isCurrent() const { return current == this; }

private:
    using Lock = std::unique_lock<std::mutex>;

    enum class Stage { running, draining, ended };

    struct Attended {
        Watch* watch;
        bool waiting = false; ///< a thread is there
        bool dismissed = false;
    };

    void addThreads(std::size_t wanted);
    void work();
    void runJob(Lock& lock);
    void keep(Lock& lock, Attended& at);
    void end(Stage how);

    // With the lock.

    bool mayRunJob() const { return !jobs.empty() && running < most && stage != Stage::ended; }

    Attended* unattended();
    bool isLeftToOthers();
    void interruptWatches();

    bool isOver() const
    {
        return stage == Stage::ended || (stage == Stage::draining && jobs.empty() && running == 0);
    }

    static thread_local const Pool* current;
    static thread_local bool isWaiting; ///< this thread looks for jobs as soon as its wait ends

    const unsigned most;
    std::mutex endings; ///< makes a second end wait for the first
    std::mutex mutex;   ///< guards all below
    std::condition_variable something;
    std::condition_variable dismissal;
    std::deque<Job> jobs;
    std::list<Attended> watches;
    std::vector<std::thread> threads;
    unsigned running = 0; ///< jobs
    unsigned parked = 0;  ///< threads with nothing to do
    Stage stage = Stage::running;
};

thread_local const DeliveryThreads::Pool* DeliveryThreads::Pool::current = nullptr;
thread_local bool DeliveryThreads::Pool::isWaiting = false;

/// What has been started before one fails ends with the pool.
void DeliveryThreads::Pool::addThreads(std::size_t wanted)
{
    threads.reserve(wanted);
    while (threads.size() < wanted)
        threads.emplace_back([this] { work(); });
}

void DeliveryThreads::Pool::enqueue(Job job)
{
    bool isWanted = false;
    {
        std::lock_guard lock(mutex);
        if (stage == Stage::ended) return;
        jobs.push_back(std::move(job));
        isWanted = parked > 0 && mayRunJob() && !(isCurrent() && isWaiting);
    }
    if (isWanted) something.notify_one();
}

void DeliveryThreads::Pool::attend(Watch& watch)
{
    {
        std::lock_guard lock(mutex);
        if (stage != Stage::running) throw errors::hostStoppedError();
        addThreads(most + watches.size() + 1);
        watches.push_back({&watch});
    }
    something.notify_one();
}

void DeliveryThreads::Pool::dismiss(Watch& watch)
{
    Lock lock(mutex);
    const auto found =
        std::find_if(watches.begin(), watches.end(), [&](const Attended& at) { return at.watch == &watch; });
    if (found == watches.end()) return;
    found->dismissed = true;
    watch.interrupt();
    dismissal.wait(lock, [&] { return !found->waiting; });
    watches.erase(found);
}

DeliveryThreads::Pool::Attended* DeliveryThreads::Pool::unattended()
{
    if (stage == Stage::ended) return nullptr;
    const auto found = std::find_if(watches.begin(), watches.end(),
                                    [](const Attended& at) { return !at.waiting && !at.dismissed; });
    return found == watches.end() ? nullptr : &*found;
}

void DeliveryThreads::Pool::work()
{
    current = this;
    Lock lock(mutex);
    while (!isOver()) {
        if (mayRunJob()) {
            runJob(lock);
        } else if (auto* free = unattended()) {
            keep(lock, *free);
        } else {
            ++parked;
            something.wait(lock);
            --parked;
        }
    }
    lock.unlock();
    something.notify_all();
}

void DeliveryThreads::Pool::runJob(Lock& lock)
{
    Job job = std::move(jobs.front());
    jobs.pop_front();
    ++running;
    const bool hasMore = parked > 0 && (mayRunJob() || unattended() != nullptr);
    lock.unlock();
    if (hasMore) something.notify_one();
    {
        const DeliveryScope scope("a task of the host");
        job();
        job = Job();
    }
    lock.lock();
    --running;
    if (isOver()) interruptWatches();
}

void DeliveryThreads::Pool::keep(Lock& lock, Attended& at)
{
    at.waiting = true;
    do {
        lock.unlock();
        isWaiting = true;
        at.watch->wait();
        isWaiting = false;
        lock.lock();
    } while (!isOver() && !at.dismissed && isLeftToOthers());
    at.waiting = false;
    if (at.dismissed) dismissal.notify_all();
}

/// A single job is there for the thread that has found it, which would otherwise have to wake another; of several, some
/// have to be handed on anyway, and then it is better to stay and find more.
bool DeliveryThreads::Pool::isLeftToOthers()
{
    if (jobs.size() == 1 && running == 0) return false;
    const auto wanted = std::min<std::size_t>({jobs.size(), most - running, parked});
    for (std::size_t i = 0; i < wanted; ++i)
        something.notify_one();
    return true;
}

void DeliveryThreads::Pool::interruptWatches()
{
    for (const auto& at : watches)
        at.watch->interrupt();
}

void DeliveryThreads::Pool::end(Stage how)
{
    std::lock_guard once(endings);
    std::vector<std::thread> ending;
    {
        std::lock_guard lock(mutex);
        stage = std::max(stage, how);
        interruptWatches();
        ending.swap(threads);
    }
    something.notify_all();
    for (auto& thread : ending)
        thread.join();
    std::deque<Job> left; // destroyed without the lock: that settles promises and so calls out
    std::lock_guard lock(mutex);
    stage = Stage::ended;
    left.swap(jobs);
}

DeliveryThreads::DeliveryThreads(unsigned count)
    : pool(std::make_unique<Pool>(count != 0 ? count : std::max(1u, std::thread::hardware_concurrency())))
{
    pool->start();
}

DeliveryThreads::~DeliveryThreads() = default;

void DeliveryThreads::enqueue(Job job)
{
    pool->enqueue(std::move(job));
}

void DeliveryThreads::attend(Watch& watch)
{
    pool->attend(watch);
}

void DeliveryThreads::dismiss(Watch& watch)
{
    pool->dismiss(watch);
}

bool DeliveryThreads::isCurrent() const
{
    return pool->isCurrent();
}

void DeliveryThreads::drain()
{
    pool->drain();
}

} // namespace connector::host
