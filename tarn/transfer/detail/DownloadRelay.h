#pragma once

#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarn/protocol/HttpExchange.h"
#include "tarn/transfer/FileTransferMessages.h"
#include "tarn/transfer/Sha256.h"
#include "tarn/transfer/detail/ReplyHead.h"

#include <mutex>

namespace connector::tarn::detail {

/// Stands between the body of a reply and the subscriber of a download: cuts out what was asked for, counts, hashes,
/// and settles the future when the last signal has been given.
///
/// Signals of the body come one after the other; `request` and `cancel` come on any thread.
class DownloadRelay : public reactive_streams::SubscriberAPI<common::DataBuffer>,
                      public reactive_streams::Subscription,
                      public std::enable_shared_from_this<DownloadRelay> {
public:
    DownloadRelay(std::unique_ptr<FileDownload> request, ExchangeName name);

    Future<std::unique_ptr<Message>> getFuture() { return promise.getFuture(); }

    /// Takes the reply up. Never throws: what goes wrong fails the future.
    void begin(Future<std::unique_ptr<http::HttpClientResponse>> reply) noexcept;

    void onSubscribe(std::weak_ptr<reactive_streams::Subscription> subscription) override;
    void onNext(common::DataBuffer&& item) override;
    void onComplete() override;
    void onError(std::exception_ptr error) override;

    Future<bool> completion() override { return makeReadyFuture(true); }

    void request(std::uint64_t n) override;
    /// Of either side.
    void cancel() override;

private:
    void readHead(const std::unique_ptr<http::HttpClientResponse>& reply);
    void readPart(const http::HttpClientResponse& reply);
    bool endsAsAsked(const ReplyHead::Part& part) const;
    void readWhole(const http::HttpClientResponse& reply);
    bool endsAtOffset(const http::HttpClientResponse& reply) const;
    void chooseHash(bool isRest);
    void take(common::DataBuffer&& item);
    void cut(common::DataBuffer& item);
    void pass(common::DataBuffer&& item);
    void complete();
    void verify();
    void compare(const Sha256& arrived) const;
    /// @return whether nothing has ended the transfer before
    bool end();
    void fail(std::exception_ptr error);
    void stopSource();

    std::unique_ptr<FileDownload> asked;
    const ExchangeName exchange;
    Promise<std::unique_ptr<Message>> promise;
    std::unique_ptr<FileDownloadResponse> response;
    ContentSubscriber receiver;
    std::shared_ptr<Sha256> hash;           ///< what is compared with the digest, where there is one
    std::string told;                       ///< that digest: of the whole file, or of the part
    std::uint64_t skip = 0;                 ///< bytes still to be dropped
    std::optional<std::uint64_t> remaining; ///< bytes to be delivered, where more may come
    std::optional<std::uint64_t> expected;  ///< bytes of the body
    std::uint64_t seen = 0;                 ///< bytes of the body

    std::mutex mutex; ///< guards the three below
    std::weak_ptr<reactive_streams::Subscription> source;
    http::BodyPublisher body; ///< kept for hosts whose publisher owns the subscription
    bool ended = false;
};

} // namespace connector::tarn::detail
