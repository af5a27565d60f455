#include "tarnd/store/ObjectStoreAddress.h"

#include "tarnd/store/Sentences.h"
#include "tarnd/store/Size.h"

#include <Poco/Exception.h>
#include <Poco/NumberParser.h>
#include <Poco/URI.h>

#include <cstdlib>
#include <fstream>

namespace tarnd {

namespace {

ServiceError malformed()
{
    return sentences::badContentsUrl(
        "its URL does not have the form s3://BUCKET/PREFIX?endpoint=https://HOST:PORT&key=value.");
}

/// What needs no encoding, and therefore none that two sides could make differently before they sign it.
bool isPlain(const std::string& text)
{
    return text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/") ==
           std::string::npos;
}

std::chrono::seconds secondsIn(const std::string& text)
{
    unsigned seconds = 0;
    if (!Poco::NumberParser::tryParseUnsigned(text, seconds) || seconds == 0)
        throw sentences::badContentsUrl("its grace is not a number of seconds.");
    return std::chrono::seconds(seconds);
}

std::uint64_t partSizeIn(const std::string& text)
{
    constexpr std::uint64_t least = 1 << 20, most = std::uint64_t{5} << 30; // what the protocol takes
    const auto size = parseSize(text);
    if (!size || *size < least || *size > most)
        throw sentences::badContentsUrl("its part is not a size from 1M to 5G.");
    return *size;
}

std::string valueOf(const char* variable)
{
    const char* value = std::getenv(variable);
    return value ? value : "";
}

} // namespace

ObjectStoreAddress::ObjectStoreAddress(const std::string& url)
{
    std::string endpoint;
    try {
        const Poco::URI uri(url);
        const auto& bucket = uri.getAuthority();
        prefix = uri.getPath().empty() ? "" : uri.getPath().substr(1);
        if (!prefix.empty() && !prefix.ends_with('/')) prefix += '/';
        if (uri.getScheme() != "s3" || bucket.empty() || !isPlain(bucket + prefix)) throw malformed();
        for (const auto& [key, value] : uri.getQueryParameters()) {
            if (key == "endpoint")
                endpoint = value;
            else if (key == "region")
                region = value;
            else if (key == "credentials")
                credentialsFile = value;
            else if (key == "part")
                partSize = partSizeIn(value);
            else if (key == "grace")
                grace = secondsIn(value);
            else
                throw sentences::badContentsUrl("its URL has a key that is none: \"" + key + "\".");
        }
        const Poco::URI there(endpoint);
        const bool spoken = there.getScheme() == "https" || there.getScheme() == "http";
        if (!spoken || there.getHost().empty() || !there.getUserInfo().empty()) throw malformed();
        endpoint.erase(endpoint.find_last_not_of('/') + 1);
        name = "s3://" + bucket + "/" + prefix;
        bucketUrl = endpoint + "/" + bucket;
    } catch (const Poco::Exception&) {
        throw malformed();
    }
    if (region.empty() || !isPlain(region)) throw malformed();
}

ObjectStoreKey keyFor(const ObjectStoreAddress& address)
{
    ObjectStoreKey key;
    if (address.credentialsFile.empty()) {
        key = {valueOf("AWS_ACCESS_KEY_ID"), valueOf("AWS_SECRET_ACCESS_KEY")};
    } else {
        std::ifstream file(address.credentialsFile);
        std::getline(file, key.id);
        std::getline(file, key.secret);
    }
    if (!key.id.empty() && !key.secret.empty()) return key;
    throw sentences::badContentsUrl(
        address.credentialsFile.empty()
            ? "set AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY, or name a file: credentials=FILE."
            : "its file of credentials has to have two lines, the id of the key and the secret.");
}

} // namespace tarnd
