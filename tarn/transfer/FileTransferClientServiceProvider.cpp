#include "tarn/transfer/FileTransferClientServiceProvider.h"

#include "tarn/protocol/ContentRequest.h"
#include "tarn/protocol/HttpExchange.h"
#include "tarn/transfer/ContentDigest.h"
#include "tarn/transfer/DigestMismatch.h"
#include "tarn/transfer/FileTransferMessages.h"
#include "tarn/transfer/detail/DownloadRelay.h"
#include "tarn/transfer/detail/MeasuredContent.h"
#include "tarn/transfer/detail/ReplyHead.h"

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace connector::tarn {
namespace {

using Reply = FileTransferServiceProvider::Reply;

std::unique_ptr<FileUploadResponse> readUpload(http::HttpClientResponse& reply,
                                               const detail::Measure& measured)
{
    auto response = std::make_unique<FileUploadResponse>();
    readFields(*readDocument(reply), *response, versionFields);
    response->tag = detail::ReplyHead(reply).versionId();
    response->bytes = measured.bytes();
    response->sha256 = measured.sha256();
    const std::string told = detail::ReplyHead(reply).sha256();
    if (!told.empty() && told != response->sha256) {
        throw StoredMismatch("The service has stored something else than was sent: its SHA-256 is " + told +
                                 ", not " + response->sha256 + ".",
                             response->tag);
    }
    response->verified = !told.empty();
    return response;
}

/// "bytes=5-9", "bytes=5-"; empty for the whole file.
std::string rangeOf(const FileDownload& request)
{
    if (request.offset == 0 && !request.length) return {};
    std::string range = "bytes=" + std::to_string(request.offset) + "-";
    const auto rest = std::numeric_limits<std::uint64_t>::max() - request.offset;
    // No file reaches to where that would be no number any more.
    if (request.length && *request.length <= rest)
        range += std::to_string(request.offset + *request.length - 1);
    return range;
}

} // namespace

FileTransferClientServiceProvider::FileTransferClientServiceProvider(
    std::shared_ptr<configuration::Configuration> store, std::string initialEndpoint)
    : endpoint(std::move(initialEndpoint))
    , configuration(std::move(store))
    , cancellers(
          trackEndpoint(configuration, std::string(endpoint), [this](configuration::ConfigValue&& value) {
              endpoint = boost::get<std::string>(std::move(value));
          }))
{
}

Reply FileTransferClientServiceProvider::handle(std::unique_ptr<FileUpload>&& request, Address&& to,
                                                ContextPtr&& context)
{
    if (!request->content) throw std::invalid_argument("There is no content to upload.");
    const auto measured = std::make_shared<detail::MeasuredContent>(request->content, request->size);
    ServiceRequest http = contentWriteRequest(endpoint, *request, request->createMode, measured);
    if (request->size) {
        http.addHeader("Content-Length", std::to_string(*request->size));
    } else {
        http.addHeader("Transfer-Encoding", "chunked");
    }
    if (!request->sha256.empty()) http.addHeader("Content-Digest", contentDigestOf(request->sha256));
    http.addTag("If-Match", request->ifVersion);
    auto built = http.buildStreamed();
    built->stop = request->stop;
    return exchange(std::move(built), std::move(to), *context,
                    [measure = measured->measure()](http::HttpClientResponse& reply) {
                        return readUpload(reply, *measure);
                    });
}

Reply FileTransferClientServiceProvider::handle(std::unique_ptr<FileDownload>&& request, Address&& to,
                                                ContextPtr&& context)
{
    if (!request->content) throw std::invalid_argument("There is no subscriber for the content.");
    if (request->length == 0u) throw std::invalid_argument("A part of no bytes cannot be asked for.");
    if (request->hash && request->hash->bytes() != request->offset)
        throw std::invalid_argument("The hash is not of the bytes before the part.");
    ServiceRequest http = contentReadRequest(endpoint, *request);
    if (const std::string range = rangeOf(*request); !range.empty()) {
        http.addHeader("Range", range);
        http.addTag("If-Range", request->ifVersion);
    }
    auto built = http.buildStreamed();
    built->replyBody = http::ReplyBody::content;
    built->stop = request->stop;
    const auto relay = std::make_shared<detail::DownloadRelay>(std::move(request), ExchangeName(*built));
    auto response = relay->getFuture();
    static_cast<void>(sendHttpRequest(std::move(built), std::move(to), *context)
                          .then([relay](Future<std::unique_ptr<http::HttpClientResponse>>&& reply) {
                              relay->begin(std::move(reply));
                          }));
    return response;
}

} // namespace connector::tarn
