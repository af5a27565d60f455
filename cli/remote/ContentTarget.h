#pragma once

#include "cli/terminal/Failure.h"
#include "tarn/transfer/FileTransferMessages.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tarncli {

/// Where a content goes that may take several requests, each from where the one before was cut off.
///
/// Used by one thread at a time: that of the caller between the requests, the delivery threads during one.
class ContentTarget {
public:
    virtual ~ContentTarget() = default;

    /// Bytes from the beginning of the content that are here.
    virtual std::uint64_t held() const = 0;
    /// Of these bytes; a request adds what it brings. @throws Failure
    virtual std::shared_ptr<connector::tarn::Sha256> hash() = 0;
    /// The id of the version that they are of; empty: not known, so that nothing can be added to them.
    virtual std::string version() const = 0;
    /// What comes is of this version. @throws Failure
    virtual void setVersion(const std::string& id) = 0;
    /// Drops what is here. @param why  as a sentence without its end @throws Failure when it cannot be taken back
    virtual void startOver(const std::string& why) = 0;
    /// For one request; keeps the target.
    virtual connector::tarn::ContentSubscriber subscriber() = 0;

    /// Of the whole content, as the service has told it of that version; empty: it has not.
    const std::string& sha256() const { return told; }

    void setSha256(const std::string& digest) { told = digest; }

    /// Refuses what goes beyond this many bytes; nothing: the network layer knows where the content ends.
    void limitTo(std::optional<std::uint64_t> bytes) { limit = bytes; }

protected:
    /// For all up to this position. @throws Failure
    void requireRoomTo(std::uint64_t end) const
    {
        if (limit && end > *limit)
            throw Failure(ExitCode::failure, "The service sends more than the file has.");
    }

private:
    std::optional<std::uint64_t> limit;
    std::string told;
};

} // namespace tarncli
