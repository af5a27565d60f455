#pragma once

#include "tarn/transfer/FileTransferMessages.h"
#include "tarn/transfer/Sha256.h"

#include <mutex>

namespace connector::tarn::detail {

/// What has gone by of a content: written by the thread that brings its items, read by the one that has the reply.
class Measure {
public:
    void add(std::string_view bytes);
    /// All has gone by.
    void finish();

    std::uint64_t bytes() const;
    /// @throws std::runtime_error before `finish`: a service that answers then cannot have stored the content
    std::string sha256() const;

private:
    mutable std::mutex mutex; ///< guards everything below
    Sha256 hash;
    bool finished = false;
};

/// A content on its way up, counted and hashed item by item; one that is not as long as announced fails.
class MeasuredContent : public reactive_streams::PublisherAPI<common::DataBuffer> {
public:
    MeasuredContent(ContentPublisher content, std::optional<std::uint64_t> size);

    Future<bool> completion() override { return source->completion(); }

    void subscribe(ContentSubscriber subscriber) override;

    std::shared_ptr<const Measure> measure() const { return measured; }

private:
    ContentPublisher source;
    std::optional<std::uint64_t> size;
    std::shared_ptr<Measure> measured;
};

} // namespace connector::tarn::detail
