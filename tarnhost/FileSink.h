#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/Export.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <cstdint>
#include <memory>
#include <mutex>

namespace connector::host {

/// Writes a stream to a descriptor, from where it stands on: the end of a download.
///
///     download->content = std::make_shared<host::FileSink>(descriptor);
///
/// Writes within `onNext`, on the thread that delivers: a pipe that nobody reads holds a delivery thread up. What
/// cannot be written is thrown out of `onNext` as std::system_error, and so becomes the failure of the download.
/// Nothing is synced or closed; after an error what has been written stays.
class TARN_API FileSink : public reactive_streams::SubscriberAPI<common::DataBuffer> {
public:
    struct Options {
        /// Blocks of zeros become holes of a regular file, which is to hold nothing behind its position.
        bool keepHoles = false;
    };

    /// Writes through a duplicate: `descriptor` stays the caller's and may be closed. The two share one position.
    /// @throws std::system_error
    FileSink(int descriptor, Options options);

    explicit FileSink(int descriptor) : FileSink(descriptor, Options()) {}

    ~FileSink() override;
    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    void onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered) override;
    void onNext(common::DataBuffer&& item) override;
    /// @throws std::system_error
    void onComplete() override;
    void onError(std::exception_ptr error) override;
    void cancel() override;

    /// Legal once.
    Future<bool> completion() override { return ended.getFuture(); }

private:
    void write(std::string_view bytes);
    void skip(std::uint64_t bytes);
    void settle(bool completed);

    const int file;
    const bool keepHoles;
    bool hasHole = false;
    std::mutex mutex; ///< guards everything below
    std::weak_ptr<reactive_streams::Subscription> subscription;
    bool settled = false;
    Promise<bool> ended;
};

} // namespace connector::host
