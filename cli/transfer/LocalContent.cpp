#include "cli/transfer/LocalContent.h"

#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"
#include "tarnhost/FileSource.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <utility>

namespace tarncli {

namespace {

using connector::Future;
using connector::common::DataBuffer;
using connector::reactive_streams::PublisherAPI;
using connector::reactive_streams::SubscriberAPI;
using connector::reactive_streams::Subscription;
namespace fs = std::filesystem;

bool isSame(const struct stat& before, const struct stat& after)
{
    return before.st_size == after.st_size && before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
           before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
}

/// A regular file, as it was when it was opened.
struct Original {
    std::shared_ptr<const FileDescriptor> file;
    std::string shown;

    struct stat before {};

    void requireUnchanged() const
    {
        struct stat after {};

        if (::fstat(file->get(), &after) != 0) throwErrno("Could not read", shown);
        if (!isSame(before, after))
            throw NothingDone(ExitCode::failure, shown + " changed while it was being read; store it again.");
    }
};

/// Hands on what goes by, and counts it. The last byte of a file goes on only when the file is as it was.
class Checkpoint : public SubscriberAPI<DataBuffer> {
public:
    Checkpoint(std::shared_ptr<SubscriberAPI<DataBuffer>> next, std::optional<Original> regular,
               MovedBytes counter)
        : receiver(std::move(next)), original(std::move(regular)), moved(std::move(counter))
    {
    }

    void onSubscribe(std::weak_ptr<Subscription> offered) override
    {
        subscription = offered;
        receiver->onSubscribe(std::move(offered));
    }

    /// What was not sent to its end is sent again, or not at all.
    ~Checkpoint() override
    {
        if (!complete) *moved -= seen;
    }

    Checkpoint(const Checkpoint&) = delete;
    Checkpoint& operator=(const Checkpoint&) = delete;

    void onNext(DataBuffer&& item) override
    {
        seen += item.size;
        *moved += item.size;
        if (original && seen >= static_cast<std::uint64_t>(original->before.st_size)) {
            if (!isUnchanged()) return;
            complete = true;
        }
        receiver->onNext(std::move(item));
    }

    void onComplete() override
    {
        if (failed || !isUnchanged()) return;
        complete = true;
        receiver->onComplete();
    }

    void onError(std::exception_ptr error) override
    {
        if (!std::exchange(failed, true)) receiver->onError(std::move(error));
    }

    void cancel() override
    {
        if (const auto held = subscription.lock()) held->cancel();
    }

    Future<bool> completion() override { return connector::makeReadyFuture(true); }

private:
    bool isUnchanged()
    {
        if (!original) return true;
        try {
            original->requireUnchanged();
            return true;
        } catch (const Failure&) {
            cancel();
            onError(std::current_exception());
            return false;
        }
    }

    std::shared_ptr<SubscriberAPI<DataBuffer>> receiver;
    std::optional<Original> original; ///< of a regular file
    MovedBytes moved;
    std::uint64_t seen = 0;
    bool failed = false;
    bool complete = false;
    std::weak_ptr<Subscription> subscription;
};

class Published : public PublisherAPI<DataBuffer> {
public:
    Published(int descriptor, std::optional<Original> regular, MovedBytes counter)
        : source(descriptor), original(std::move(regular)), moved(std::move(counter))
    {
    }

    void subscribe(std::shared_ptr<SubscriberAPI<DataBuffer>> subscriber) override
    {
        source.subscribe(std::make_shared<Checkpoint>(std::move(subscriber), original, moved));
    }

    Future<bool> completion() override { return source.completion(); }

private:
    connector::host::FileSource source;
    std::optional<Original> original;
    MovedBytes moved;
};

} // namespace

LocalContent::LocalContent(FileDescriptor opened, std::string shownName)
    : file(std::make_shared<const FileDescriptor>(std::move(opened))), shown(std::move(shownName))
{
    if (!*file || ::fstat(file->get(), &before) != 0) throwErrno("Could not read", shown);
}

LocalContent LocalContent::ofFile(const fs::path& file, Symlinks symlinks)
{
    const int noFollow = symlinks == Symlinks::refuse ? O_NOFOLLOW : 0;
    // Not blocking: what was a file when the folder was walked may be a pipe by now.
    return ofOpened(FileDescriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | noFollow)),
                    file.string());
}

LocalContent LocalContent::ofOpened(FileDescriptor opened, const std::string& shown)
{
    LocalContent content(std::move(opened), shown);
    const auto asInput = "store it with `tarn put - /there < " + escaped(shown) + "`.";
    if (!S_ISREG(content.before.st_mode))
        throw Failure(ExitCode::failure, escaped(shown) + " is not a regular file" +
                                             (S_ISDIR(content.before.st_mode) ? "." : "; " + asInput));
    if (content.hasMoreThanItTells())
        throw Failure(ExitCode::failure, escaped(shown) + " does not tell its size; " + asInput);
    content.bytes = static_cast<std::uint64_t>(content.before.st_size);
    return content;
}

/// As files do that the kernel makes up when they are read.
bool LocalContent::hasMoreThanItTells() const
{
    char first = 0;
    return before.st_size == 0 && ::pread(file->get(), &first, 1, 0) > 0;
}

LocalContent LocalContent::ofStandardInput()
{
    const std::string shown = "standard input";
    char none = 0;
    if (::read(STDIN_FILENO, &none, 0) < 0) throwErrno("Could not read", shown); // closed, or a folder
    return {FileDescriptor(::dup(STDIN_FILENO)), shown};
}

connector::tarn::ContentPublisher LocalContent::publisher(MovedBytes moved) const
{
    std::optional<Original> original;
    if (bytes) original = Original{file, shown, before};
    return std::make_shared<Published>(file->get(), std::move(original), std::move(moved));
}

std::uint64_t LocalContent::lastModified() const
{
    return static_cast<std::uint64_t>(modified() / 1'000'000);
}

std::int64_t LocalContent::modified() const
{
    return std::int64_t{before.st_mtim.tv_sec} * 1'000'000'000 + before.st_mtim.tv_nsec;
}

std::string LocalContent::sha256(const MovedBytes& moved) const
{
    connector::tarn::Sha256 hash;
    std::array<char, 64 * 1024> buffer;
    for (off_t done = 0;;) {
        const auto count = ::pread(file->get(), buffer.data(), buffer.size(), done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throwErrno("Could not read", shown);
        if (count == 0) return hash.hex();
        hash.add({buffer.data(), static_cast<std::size_t>(count)});
        done += count;
        *moved += static_cast<std::uint64_t>(count);
    }
}

void awaitStandardInput()
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (::poll(&input, 1, -1) < 0 && errno == EINTR) {
    }
}

} // namespace tarncli
