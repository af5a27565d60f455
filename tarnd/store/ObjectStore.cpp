#include "tarnd/store/ObjectStore.h"

#include "tarnd/store/Sentences.h"

#include <Poco/AutoPtr.h>
#include <Poco/DOM/DOMParser.h>
#include <Poco/DOM/Document.h>
#include <Poco/DOM/Element.h>
#include <Poco/DOM/NodeList.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeParser.h>
#include <Poco/Exception.h>
#include <Poco/URI.h>

#include <algorithm>
#include <thread>

namespace tarnd {

namespace {

constexpr int ok = 200, noContent = 204, partial = 206, notFound = 404;

/// For the values of a query, which are signed as they stand.
std::string encoded(const std::string& text)
{
    std::string result;
    Poco::URI::encode(text, "!#$&'()*+,/:;=?@[]", result);
    return result;
}

/// A store that is busy, or a connection that died while nobody used it. What was waited for would be waited for
/// again.
template <class Attempt>
auto repeated(Attempt&& attempt)
{
    for (const auto pause : {std::chrono::milliseconds(100), std::chrono::milliseconds(500)}) {
        const auto started = std::chrono::steady_clock::now();
        try {
            return attempt();
        } catch (const ServiceError& error) {
            const bool waited = std::chrono::steady_clock::now() - started > std::chrono::seconds(1);
            if (waited || error.reason() != sentences::objectsGone.reason) throw;
            std::this_thread::sleep_for(pause);
        }
    }
    return attempt();
}

/// The reply as a document. @throws ServiceError internal
class XmlReply {
public:
    explicit XmlReply(const std::string& text)
    {
        try {
            document = Poco::XML::DOMParser().parseString(text);
        } catch (const Poco::Exception& error) {
            throw sentences::internal.because("the object store sent no XML: " + error.displayText());
        }
    }

    std::vector<const Poco::XML::Element*> all(const std::string& name) const
    {
        const Poco::AutoPtr<Poco::XML::NodeList> nodes(document->getElementsByTagName(name));
        std::vector<const Poco::XML::Element*> found;
        for (unsigned long i = 0; i < nodes->length(); ++i)
            found.push_back(static_cast<const Poco::XML::Element*>(nodes->item(i)));
        return found;
    }

    std::string first(const std::string& name) const
    {
        const auto found = all(name);
        return found.empty() ? "" : found.front()->innerText();
    }

private:
    Poco::AutoPtr<Poco::XML::Document> document;
};

std::string child(const Poco::XML::Element* element, const std::string& name)
{
    const auto* found = element->getChildElement(name);
    return found ? found->innerText() : "";
}

/// Between two times of the store's own clock. A store that tells none has nothing old enough to go.
std::chrono::seconds ageBetween(const std::string& made, const std::string& now)
{
    Poco::DateTime from, to;
    int zone = 0;
    if (!Poco::DateTimeParser::tryParse(made, from, zone) || !Poco::DateTimeParser::tryParse(now, to, zone))
        return std::chrono::seconds(0);
    return std::chrono::seconds((to - from).totalSeconds());
}

class ObjectStream final : public ContentStream {
public:
    /// @param first that of the whole object, its head there
    ObjectStream(ObjectConnections& connections, std::string key, std::unique_ptr<ObjectExchange> first)
        : connections(connections)
        , key(std::move(key))
        , exchange(std::move(first))
        , whole(std::stoull("0" + exchange->header("content-length")))
        , left(whole)
    {
    }

    std::uint64_t size() const override { return whole; }

    /// Most readers want all, so that this second request is rare.
    void choose(std::uint64_t first, std::uint64_t count) override
    {
        left = count;
        const auto range = std::to_string(first) + "-" + std::to_string(first + count - 1);
        exchange = std::make_unique<ObjectExchange>(
            connections, ObjectRequest{.method = "GET", .key = key, .query = {}, .range = range});
        // Deleted since: whoever asks again is told what is there instead.
        if (exchange->status() == notFound) throw sentences::objectsGone.because(key + " has just gone");
        if (exchange->status() != partial) throw exchange->refusal();
    }

    std::size_t read(void* data, std::size_t size) override
    {
        if (left == 0) return 0;
        const auto got = exchange->read(data, static_cast<std::size_t>(std::min<std::uint64_t>(size, left)));
        if (got == 0) throw sentences::objectsGone.because(key + " ended early");
        left -= got;
        if (left == 0) end();
        return got;
    }

private:
    /// So that the connection serves others; all bytes are here already.
    void end()
    {
        try {
            exchange->rest();
        } catch (const ServiceError&) {
        }
    }

    ObjectConnections& connections;
    const std::string key;
    std::unique_ptr<ObjectExchange> exchange;
    const std::uint64_t whole;
    std::uint64_t left;
};

} // namespace

std::optional<std::string> ObjectStore::text(const std::string& key)
{
    return repeated([&]() -> std::optional<std::string> {
        ObjectExchange exchange(connections, {.method = "GET", .key = key, .query = {}});
        const auto status = exchange.status();
        if (status != ok && status != notFound) throw exchange.refusal();
        auto text = exchange.rest();
        return status == ok ? std::optional(std::move(text)) : std::nullopt;
    });
}

void ObjectStore::putText(const std::string& key, const std::string& text, const std::string& sha256)
{
    repeated([&] {
        ObjectExchange exchange(
            connections, {.method = "PUT", .key = key, .query = {}, .upload = text.size(), .sha256 = sha256});
        exchange.send(text.data(), text.size());
        if (exchange.status() != ok) throw exchange.refusal();
        exchange.rest();
    });
}

std::unique_ptr<ContentStream> ObjectStore::open(const std::string& key)
{
    return repeated([&]() -> std::unique_ptr<ContentStream> {
        auto exchange = std::make_unique<ObjectExchange>(
            connections, ObjectRequest{.method = "GET", .key = key, .query = {}});
        if (exchange->status() == notFound) return exchange->rest(), nullptr;
        if (exchange->status() != ok) throw exchange->refusal();
        return std::make_unique<ObjectStream>(connections, key, std::move(exchange));
    });
}

std::optional<std::chrono::seconds> ObjectStore::age(const std::string& key)
{
    ObjectExchange exchange(connections, {.method = "HEAD", .key = key, .query = {}});
    const auto status = exchange.status();
    exchange.rest();
    if (status == notFound) return std::nullopt;
    if (status != ok) throw exchange.refusal();
    return ageBetween(exchange.header("last-modified"), exchange.header("date"));
}

void ObjectStore::remove(const std::string& key, const std::string& uploadId)
{
    repeated([&] {
        ObjectRequest request{.method = "DELETE", .key = key, .query = {}};
        if (!uploadId.empty()) request.query["uploadId"] = encoded(uploadId);
        ObjectExchange exchange(connections, request);
        const auto status = exchange.status();
        if (status != ok && status != noContent && status != notFound) throw exchange.refusal();
        exchange.rest();
    });
}

std::vector<std::string> ObjectStore::keys(const std::string& beginning)
{
    const auto& prefix = address().prefix;
    std::vector<std::string> found;
    for (bool more = true; more;) {
        std::map<std::string, std::string> query{{"list-type", "2"}, {"prefix", encoded(prefix + beginning)}};
        if (!found.empty()) query["start-after"] = encoded(prefix + found.back());
        const XmlReply page(repeated([&] {
            ObjectExchange exchange(connections, {.method = "GET", .key = "", .query = query});
            if (exchange.status() != ok) throw exchange.refusal();
            return exchange.rest();
        }));
        const auto before = found.size();
        for (const auto* object : page.all("Contents"))
            if (const auto key = child(object, "Key"); key.starts_with(prefix))
                found.push_back(key.substr(prefix.size()));
        more = page.first("IsTruncated") == "true" && found.size() > before;
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::unique_ptr<ObjectExchange> ObjectStore::put(const std::string& key, std::uint64_t size)
{
    return std::make_unique<ObjectExchange>(
        connections, ObjectRequest{.method = "PUT", .key = key, .query = {}, .upload = size});
}

std::unique_ptr<ObjectExchange> ObjectStore::putPart(const std::string& key, const std::string& uploadId,
                                                     std::size_t number, std::uint64_t size)
{
    return std::make_unique<ObjectExchange>(
        connections,
        ObjectRequest{.method = "PUT",
                      .key = key,
                      .query = {{"partNumber", std::to_string(number)}, {"uploadId", encoded(uploadId)}},
                      .upload = size});
}

std::string ObjectStore::beginParts(const std::string& key)
{
    ObjectExchange exchange(connections, {.method = "POST", .key = key, .query = {{"uploads", ""}}});
    if (exchange.status() != ok) throw exchange.refusal();
    const auto id = XmlReply(exchange.rest()).first("UploadId");
    if (id.empty()) throw sentences::internal.because("the object store gave an upload no id");
    return id;
}

/// The status goes out before the outcome is known, so that the document counts.
void ObjectStore::completeParts(const std::string& key, const std::string& uploadId,
                                const std::vector<std::string>& tags)
{
    std::string body = "<CompleteMultipartUpload>";
    for (std::size_t i = 0; i < tags.size(); ++i)
        body +=
            "<Part><PartNumber>" + std::to_string(i + 1) + "</PartNumber><ETag>" + tags[i] + "</ETag></Part>";
    body += "</CompleteMultipartUpload>";
    ObjectExchange exchange(
        connections,
        {.method = "POST", .key = key, .query = {{"uploadId", encoded(uploadId)}}, .body = body});
    if (exchange.status() != ok) throw exchange.refusal();
    const auto reply = exchange.rest();
    if (XmlReply(reply).first("ETag").empty())
        throw sentences::objectsGone.because("the parts of " + key +
                                             " were not put together: " + reply.substr(0, 500));
}

std::vector<ObjectStore::Unfinished> ObjectStore::unfinished()
{
    const auto& prefix = address().prefix;
    ObjectExchange exchange(
        connections, {.method = "GET", .key = "", .query = {{"prefix", encoded(prefix)}, {"uploads", ""}}});
    if (exchange.status() != ok) throw exchange.refusal();
    const auto now = exchange.header("date");
    std::vector<Unfinished> found;
    const XmlReply page(exchange.rest());
    for (const auto* upload : page.all("Upload"))
        if (const auto key = child(upload, "Key"); key.starts_with(prefix))
            found.push_back({key.substr(prefix.size()), child(upload, "UploadId"),
                             ageBetween(child(upload, "Initiated"), now)});
    return found;
}

} // namespace tarnd
