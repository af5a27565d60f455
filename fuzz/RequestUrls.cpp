// From a path to the wire and back: a path, a bucket, a text and an id, separated by NUL. What the library
// sends, the service must read as the very same names, or refuse; it may never address something else.
#include "fuzz/Fuzz.h"
#include "tarn/foundation/platform/TextConversion.h"
#include "tarn/protocol/ServiceRequest.h"
#include "tarnd/http/Call.h"
#include "tarnd/store/ServiceError.h"

#include <optional>
#include <string>
#include <utf8.h>

namespace {

const std::string service = "/service/v1/files";

/// As UTF-8 where it is that, else pairs of bytes as they stand, so that lone surrogates come up too.
std::u16string utf16Of(std::string_view bytes)
{
    if (utf8::is_valid(bytes.begin(), bytes.end())) return utf8::utf8to16(bytes);
    std::u16string text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text += static_cast<char16_t>(static_cast<std::uint8_t>(bytes[i]) << 8 |
                                      static_cast<std::uint8_t>(bytes[i + 1]));
    return text;
}

std::string utf8Of(const std::u16string& text)
{
    std::string converted;
    utf8::utf16to8(text.begin(), text.end(), std::back_inserter(converted));
    return converted;
}

/// What `read` gives, or nothing when the service refuses it.
template <class F>
auto unlessRefused(F read) -> std::optional<decltype(read())>
{
    try {
        return read();
    } catch (const tarnd::ServiceError&) {
        return {};
    }
}

/// The request target of what the library sends; nothing when it refuses to build it.
std::optional<std::string> targetOf(const std::u16string& path, const std::u16string& bucket,
                                    const std::u16string& subject)
{
    using namespace connector::tarn;
    const std::string endpoint = "http://host:7070";
    try {
        auto request = pathRequest(endpoint, "get", service, path, bucket, SessionRequest());
        request.addText("subject", subject);
        const auto url = request.build()->url;
        tarnfuzz::require(url.starts_with(endpoint + "/"), "no path leads to another host");
        return url.substr(endpoint.size(), url.find('#') - endpoint.size());
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    auto rest = tarnfuzz::textOf(data, size);
    const auto path = utf16Of(tarnfuzz::cut(rest, '\0'));
    const auto bucket = utf16Of(tarnfuzz::cut(rest, '\0'));
    const auto subject = utf16Of(rest);
    // '?' and '#' in a path are sent as they are and cut it short: known, and refused by those who call.
    if (!path.starts_with(u'/') || path.find_first_of(u"?#") != path.npos) return 0;
    const auto target = targetOf(path, bucket, subject);
    if (!target) return 0;

    const auto request = unlessRefused([&] { return tarnd::Request("GET", *target, {}); });
    const auto sent = unlessRefused([&] { return tarnd::ItemPath::fromText(utf8Of(path)); });
    if (!request) return 0;
    const auto read = unlessRefused(
        [&] { return tarnd::pathOf(std::string_view(request->path()).substr(service.size())); });
    tarnfuzz::require(read == sent, "the service reads the path that was sent");
    tarnfuzz::require(request->query().text("bucket") == utf8Of(bucket), "... and the bucket");
    tarnfuzz::require(request->query().text("subject") == utf8Of(subject), "... and the text");
    return 0;
}
