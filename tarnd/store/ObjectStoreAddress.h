#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tarnd {

/// An S3-compatible object store as people name it:
///
///     s3://BUCKET[/PREFIX]?endpoint=https://HOST[:PORT]&region=REGION&credentials=FILE&part=64M&grace=86400
///
/// Only `endpoint` must be given. The bucket, or what begins with PREFIX in it, is for one tarn store alone.
/// The key comes from FILE (two lines: its id, and the secret), or from AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY.
struct ObjectStoreAddress {
    /// Looks at the form only. @throws ServiceError badRequest, without repeating the URL
    explicit ObjectStoreAddress(const std::string& url);

    std::string name;      ///< "s3://BUCKET/PREFIX", for people
    std::string bucketUrl; ///< "https://HOST:PORT/BUCKET"
    std::string prefix;    ///< empty, or with a slash at its end
    std::string region = "us-east-1";
    std::string credentialsFile;
    std::uint64_t partSize = 64 << 20; ///< bytes; what is larger goes in parts of this size
    /// What no row names is left alone for so long, which has to be longer than the longest upload.
    std::chrono::seconds grace = std::chrono::hours(24);
};

struct ObjectStoreKey {
    std::string id;
    std::string secret;
};

/// @throws ServiceError badRequest when there is none
ObjectStoreKey keyFor(const ObjectStoreAddress& address);

} // namespace tarnd
