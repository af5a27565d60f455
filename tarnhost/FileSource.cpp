#include "tarnhost/FileSource.h"

#include "tarnhost/detail/Descriptor.h"
#include "tarnhost/detail/Interruption.h"
#include "tarnhost/detail/LocalName.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace connector::host {
namespace {

using common::DataBuffer;
using Subscriber = reactive_streams::SubscriberAPI<DataBuffer>;

constexpr std::uint64_t itemBytes = 128 * 1024;

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// Sets errno if so, since opening one is no error and reading it is.
bool isFolder(int descriptor)
{
    struct stat about {};

    if (fstat(descriptor, &about) != 0 || !S_ISDIR(about.st_mode)) return false;
    errno = EISDIR;
    return true;
}

std::optional<std::uint64_t> restOf(int descriptor)
{
    struct stat about {};

    if (fstat(descriptor, &about) != 0) fail("Could not look at the content");
    if (!S_ISREG(about.st_mode)) return std::nullopt;
    const off_t position = lseek(descriptor, 0, SEEK_CUR);
    if (position < 0) fail("Could not look at the content");
    char probe = 0; // files of the kernel's own say that they are empty, and are not
    if (about.st_size == 0 && pread(descriptor, &probe, 1, 0) > 0) return std::nullopt;
    return about.st_size > position ? static_cast<std::uint64_t>(about.st_size - position) : 0;
}

/// The next item; empty at the end, none where another reader was quicker.
std::optional<DataBuffer> readItem(int descriptor, std::uint64_t most)
{
    DataBuffer item;
    item.reserve(most);
    ssize_t bytes = 0;
    do {
        bytes = read(descriptor, item.data, most);
    } while (bytes < 0 && errno == EINTR);
    if (bytes < 0 && errno == EAGAIN) return std::nullopt;
    if (bytes < 0) fail("Could not read the content");
    item.size = static_cast<std::uint64_t>(bytes);
    return item;
}

} // namespace

/// What the publisher and its thread share: the thread may be the last to need it.
class FileSource::Reader : public reactive_streams::Subscription,
                           public std::enable_shared_from_this<Reader> {
public:
    explicit Reader(int descriptor)
        : file(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)), size(file.isOpen() ? restOf(file.get()) : std::nullopt)
    {
        if (!file.isOpen()) fail("Could not open the content");
    }

    void subscribe(std::shared_ptr<Subscriber> taker)
    {
        {
            std::lock_guard lock(mutex);
            if (receiver) throw std::invalid_argument("Only one subscription allowed.");
            receiver = taker;
        }
        taker->onSubscribe(weak_from_this());
    }

    void request(std::uint64_t n) override
    {
        std::unique_lock lock(mutex);
        demand =
            n > reactive_streams::unboundedDemand - demand ? reactive_streams::unboundedDemand : demand + n;
        if (size) {
            // A subscriber that asks again within its onNext is served by the loop that runs already.
            if (!std::exchange(delivering, true)) deliver(std::move(lock));
        } else if (!thread.joinable() && !done) {
            thread =
                std::thread([self = shared_from_this()] { self->deliver(std::unique_lock(self->mutex)); });
        } else {
            changed.notify_one();
        }
    }

    void cancel() override
    {
        std::lock_guard lock(mutex);
        done = true;
        changed.notify_one();
        interruption.ring();
    }

    void join()
    {
        cancel();
        std::unique_lock lock(mutex);
        auto ending = std::move(thread);
        lock.unlock();
        if (!ending.joinable()) return;
        if (ending.get_id() == std::this_thread::get_id()) {
            ending.detach(); // within its own signal; it has nothing more to do than return
        } else {
            ending.join();
        }
    }

    std::optional<std::uint64_t> total() const { return size; }

private:
    using Lock = std::unique_lock<std::mutex>;

    /// As long as something is asked for: for a file until nothing is, for anything else until the end.
    void deliver(Lock lock)
    {
        while (!done) {
            if (demand == 0 && size) break;
            changed.wait(lock, [this] { return done || demand > 0; });
            if (done) break;
            if (demand != reactive_streams::unboundedDemand) --demand;
            lock.unlock();
            deliverNext();
            lock.lock();
        }
        delivering = false;
    }

    /// What the subscriber throws ends the stream as what cannot be read does: nobody else is there to hear of it.
    void deliverNext()
    {
        const detail::Interruption::Scope interruptible(interruption);
        bool completes = false;
        std::exception_ptr failure;
        try {
            const auto most = size ? std::min(itemBytes, *size - published) : itemBytes;
            std::optional<DataBuffer> item;
            while (!item) {
                if (!size && !detail::waitUntilReady(file.get(), POLLIN, &interruption)) return;
                item = most > 0 ? readItem(file.get(), most) : DataBuffer();
            }
            published += item->size;
            // A file ends with its last item, so that nobody has to ask for more to hear of it.
            const bool last = item->size == 0 || published == size;
            if (item->size > 0) receiver->onNext(std::move(*item));
            completes = last && end();
            if (completes) receiver->onComplete();
        } catch (...) {
            failure = std::current_exception();
        }
        // Outside the handler, so that whoever hears of it is the last to hold it.
        if (failure && (completes || end())) tellFailure(std::move(failure));
    }

    void tellFailure(std::exception_ptr error) noexcept
    {
        try {
            receiver->onError(std::move(error));
        } catch (...) { // it has been told
        }
    }

    bool end()
    {
        std::lock_guard lock(mutex);
        return !std::exchange(done, true);
    }

    const detail::Descriptor file;
    std::uint64_t published = 0; ///< bytes; used by whoever delivers
    const std::optional<std::uint64_t> size;
    detail::Interruption interruption; ///< of a wait for input, and of one within a signal
    std::mutex mutex;                  ///< guards everything below
    std::condition_variable changed;
    std::shared_ptr<Subscriber> receiver;
    std::thread thread;
    std::uint64_t demand = 0;
    bool delivering = false;
    bool done = false;
};

std::shared_ptr<FileSource> FileSource::open(const std::string& path)
{
    detail::checkLocalName(path);
    // Not waiting for the first writer of a pipe here: its reader does.
    const detail::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen() || isFolder(file.get())) fail("Could not open \"" + path + "\"");
    return std::make_shared<FileSource>(file.get());
}

FileSource::FileSource(int descriptor) : reader(std::make_shared<Reader>(descriptor)) {}

FileSource::~FileSource()
{
    reader->join();
}

std::optional<std::uint64_t> FileSource::size() const
{
    return reader->total();
}

void FileSource::subscribe(std::shared_ptr<Subscriber> subscriber)
{
    reader->subscribe(std::move(subscriber));
}

} // namespace connector::host
