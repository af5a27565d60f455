#include "tarnhost/FileSink.h"

#include "tarnhost/detail/Interruption.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace connector::host {
namespace {

using common::DataBuffer;

/// As large as what file systems keep holes by.
constexpr std::size_t blockBytes = 4096;
/// What a pipe that has any room takes at once.
constexpr std::size_t pieceBytes = PIPE_BUF;

[[noreturn]] void fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

bool isRegular(int descriptor)
{
    struct stat about {};

    return fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
}

/// What a terminal has no room for holds up even a write that it is ready for. The flag that keeps it from that would be
/// everybody's who shares the descriptor, so the terminal is opened anew.
/// @return below 0: that is not possible, or the other side of a terminal, which opened anew would be another one's
int terminalAnew(int descriptor)
{
    int number = 0;
    if (isatty(descriptor) == 0 || ioctl(descriptor, TIOCGPTN, &number) == 0) return -1;
    const auto name = "/proc/self/fd/" + std::to_string(descriptor);
    return open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

int ownOf(int descriptor, bool isFile)
{
    const int anew = isFile ? -1 : terminalAnew(descriptor);
    return anew >= 0 ? anew : fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
}

/// Every write goes to the end of the file then, wherever the position is: what was skipped would be missing.
bool appends(int descriptor)
{
    return (fcntl(descriptor, F_GETFL) & O_APPEND) != 0;
}

bool isZero(std::string_view block)
{
    return block.front() == '\0' && std::memcmp(block.data(), block.data() + 1, block.size() - 1) == 0;
}

/// How far blocks of one kind, zeros or not, go from the front.
std::size_t runLength(std::string_view bytes, bool zeros)
{
    std::size_t run = 0;
    while (run < bytes.size() && isZero(bytes.substr(run, blockBytes)) == zeros)
        run += std::min(blockBytes, bytes.size() - run);
    return run;
}

} // namespace

/// Writes one item on a thread of its own, while the next is hashed and the one after that arrives.
class FileSink::Writer {
public:
    explicit Writer(FileSink& of) : sink(of), thread([this] { run(); }) {}

    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    ~Writer() { end(); }

    /// Returns when the item before is written. @throws what that has failed with
    void write(DataBuffer&& next)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return !item || failure; });
        if (failure) std::rethrow_exception(failure);
        item = std::move(next);
        lock.unlock();
        changed.notify_one();
    }

    /// Returns when all is written. @throws as `write`
    void finish()
    {
        end();
        if (failure) std::rethrow_exception(failure);
    }

private:
    void end()
    {
        {
            std::lock_guard lock(mutex);
            ended = true;
        }
        changed.notify_one();
        if (thread.joinable()) thread.join();
    }

    void run()
    {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return item || ended; });
            if (!item) return;
            lock.unlock();
            auto fault = faultOf(*item);
            lock.lock();
            item.reset();
            failure = std::move(fault);
            changed.notify_one();
            if (failure) return;
        }
    }

    std::exception_ptr faultOf(const DataBuffer& written) noexcept
    {
        try {
            sink.store(written.bytes());
            return nullptr;
        } catch (...) {
            return std::current_exception();
        }
    }

    FileSink& sink;
    std::mutex mutex; ///< guards the four below
    std::condition_variable changed;
    std::optional<DataBuffer> item; ///< being written, or about to be
    std::exception_ptr failure;
    bool ended = false;
    std::thread thread; ///< last, since it uses the others
};

FileSink::FileSink(int descriptor, Options options)
    : isFile(isRegular(descriptor))
    , file(ownOf(descriptor, isFile))
    , keepHoles(options.keepHoles && isFile && !appends(descriptor))
{
    if (file < 0) fail("Could not open the target");
}

FileSink::~FileSink()
{
    writer.reset();
    ::close(file);
}

void FileSink::onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered)
{
    std::unique_lock lock(mutex);
    if (std::exchange(subscribed, true)) throw std::invalid_argument("Only one subscription allowed.");
    subscription = std::move(offered);
    const auto held = subscription.lock();
    const bool isCancelled = settled;
    lock.unlock();
    if (!held) return;
    if (isCancelled) return held->cancel();
    // One item comes after the other, each once the one before is written.
    held->request(reactive_streams::unboundedDemand);
}

/// The first item at once: most files have no more, and a thread would cost more than it saves.
void FileSink::onNext(DataBuffer&& item)
{
    orSettle([&] {
        if (!isFile || !std::exchange(hasBegun, true)) return store(item.bytes());
        if (!writer) writer = std::make_unique<Writer>(*this);
        writer->write(std::move(item));
    });
}

/// What cannot be written is the end here, too: an error after it may never come.
template <class Step>
void FileSink::orSettle(Step step)
{
    try {
        step();
    } catch (...) {
        settle(false);
        throw;
    }
}

void FileSink::store(std::string_view bytes)
{
    while (!bytes.empty()) {
        const bool zeros = keepHoles && isZero(bytes.substr(0, blockBytes));
        const auto run = keepHoles ? runLength(bytes, zeros) : bytes.size();
        zeros ? skip(run) : write(bytes.substr(0, run));
        bytes.remove_prefix(run);
    }
}

/// To anything but a file in pieces that fit where there is room, since a write that waits cannot be interrupted.
void FileSink::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        if (!isFile && !detail::waitUntilReady(file, POLLOUT, detail::Interruption::current())) return;
        const auto written =
            ::write(file, bytes.data(), isFile ? bytes.size() : std::min(bytes.size(), pieceBytes));
        if (written < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (written < 0) fail("Could not write the content");
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void FileSink::skip(std::uint64_t bytes)
{
    if (lseek(file, static_cast<off_t>(bytes), SEEK_CUR) < 0) fail("Could not write the content");
    hasHole = true;
}

void FileSink::onComplete()
{
    orSettle([this] { finish(); });
    settle(true);
}

/// All of it: the download may go on from there.
void FileSink::onError(std::exception_ptr)
{
    orSettle([this] { finish(); });
    settle(false);
}

void FileSink::finish()
{
    if (writer) writer->finish();
    if (!hasHole) return;
    const off_t end = lseek(file, 0, SEEK_CUR); // the last block may be one
    if (end < 0 || ftruncate(file, end) != 0) fail("Could not write the content");
}

void FileSink::cancel()
{
    std::unique_lock lock(mutex);
    const auto held = subscription.lock();
    lock.unlock();
    if (held) held->cancel();
    settle(false);
}

void FileSink::settle(bool completed)
{
    {
        std::lock_guard lock(mutex);
        if (std::exchange(settled, true)) return;
    }
    ended.setValue(std::move(completed));
}

} // namespace connector::host
