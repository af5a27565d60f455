#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/Export.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace connector::host {

/// Publishes what a descriptor yields, from where it stands to its end: the content of an upload.
///
///     auto source = host::FileSource::open("big.iso");
///     upload->content = source;
///     upload->size = source->size();
///
/// Items are of up to 128 KiB. A regular file is read within `request`, on the thread that asks, which in a TarnHost
/// is a delivery thread. Anything else, such as a pipe, may keep its reader waiting for ever and is read on a thread
/// of its own, which a cancel ends within milliseconds. What cannot be read ends the stream with std::system_error, and
/// what the subscriber throws with just that.
class TARN_API FileSource : public reactive_streams::PublisherAPI<common::DataBuffer> {
public:
    /// Waits for nobody: a pipe without a writer is read once it has one.
    /// @throws std::system_error, whose text names the file, also for a folder
    static std::shared_ptr<FileSource> open(const std::string& path);

    /// Reads through a duplicate: `descriptor` stays the caller's and may be closed. The two share one position.
    /// @throws std::system_error
    explicit FileSource(int descriptor);
    ~FileSource() override;
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    /// Bytes from where a regular file stood to its end, when this was made, and no more are published; nothing for
    /// anything else, a file of the kernel's that does not know its size included.
    std::optional<std::uint64_t> size() const;

    /// Resolved with true already.
    Future<bool> completion() override { return makeReadyFuture(true); }

    /// @throws std::invalid_argument "Only one subscription allowed." on a second call
    void subscribe(std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> subscriber) override;

private:
    class Reader;
    std::shared_ptr<Reader> reader;
};

} // namespace connector::host
