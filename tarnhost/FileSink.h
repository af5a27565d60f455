#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/Export.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

namespace connector::host {

/// Writes a stream to a descriptor, from where it stands on: the end of one download.
///
///     download->content = std::make_shared<host::FileSink>(descriptor);
///
/// Writes to a regular file on a thread of its own from the second item on, a little behind what has been delivered,
/// and to anything else within `onNext`, on the thread that delivers: a pipe that nobody reads holds a delivery thread
/// up, until the download is stopped, its deadline passes, `cancel` is called or the host ends. Once all of it has
/// arrived here, only the latter two do: the exchange, which the others break off, is over. What takes less at a time
/// than it has said, such as a terminal that cannot be opened anew or a pipe that others write to, too, is waited for.
///
/// What cannot be written is thrown out of a following `onNext`, the end or the error as std::system_error, and so
/// becomes the failure of the download. Otherwise all that was delivered has been written at the end or the error, but
/// for what waited for room then; after `cancel` once the sink is gone. Nothing is synced or closed; after an error
/// what has been written stays.
class TARN_API FileSink : public reactive_streams::SubscriberAPI<common::DataBuffer> {
public:
    struct Options {
        /// Blocks of zeros become holes of a regular file, which is to hold nothing behind its position. Not of one
        /// that was opened with O_APPEND: it gets all bytes.
        bool keepHoles = false;
    };

    /// Writes through a duplicate: `descriptor` stays the caller's and may be closed. The two share one position.
    /// @throws std::system_error
    FileSink(int descriptor, Options options);

    explicit FileSink(int descriptor) : FileSink(descriptor, Options()) {}

    ~FileSink() override;
    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    /// @throws std::invalid_argument "Only one subscription allowed." on a second call
    void onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered) override;
    void onNext(common::DataBuffer&& item) override;
    /// @throws std::system_error
    void onComplete() override;
    /// @throws std::system_error  what came before `error` could not be written
    void onError(std::exception_ptr error) override;
    /// Ends the download; before its head has come, only then: until that `FileDownload::stop` alone closes the socket.
    void cancel() override;

    /// Legal once.
    Future<bool> completion() override { return ended.getFuture(); }

private:
    class Writer;

    template <class Step>
    void orSettle(Step step);
    void store(std::string_view bytes);
    void write(std::string_view bytes);
    void skip(std::uint64_t bytes);
    void finish();
    void settle(bool completed);

    const bool isFile;
    const int file;
    const bool keepHoles;
    bool hasHole = false;
    bool hasBegun = false;
    std::unique_ptr<Writer> writer; ///< null: all has been written within `onNext`
    std::mutex mutex;               ///< guards everything below
    std::weak_ptr<reactive_streams::Subscription> subscription;
    bool subscribed = false;
    bool settled = false;
    Promise<bool> ended;
};

} // namespace connector::host
