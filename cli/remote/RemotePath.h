#pragma once

#include <string>
#include <string_view>

namespace tarncli {

/// Where something is stored: a path in a user's bucket.
struct RemotePath {
    std::string bucket;    ///< UTF-8; empty: the bucket of who is logged in
    std::string path;      ///< UTF-8, begins with '/', no '/' at the end except for the root
    bool asFolder = false; ///< was written with a '/' at the end: must be a folder

    /// Reads `/docs/a.txt` or `alice:/docs/a.txt`. Nothing is normalised:
    /// empty names, "." and ".." are refused.
    /// @throws Failure (usage) that says how to write it
    static RemotePath parse(const std::string& text);

    bool isRoot() const { return path == "/"; }

    /// The last name; empty for the root.
    std::string name() const;

    RemotePath child(const std::string& childName) const;
    /// @pre not the root
    RemotePath parent() const;

    /// As the user writes it.
    std::string text() const { return bucket.empty() ? path : bucket + ":" + path; }

    /// As a message shows it: quoted and escaped.
    std::string quoted() const;
};

/// Reads a path that becomes part of a request's URL, where '?' and '#' would cut it short
/// and reach another item.
/// @throws Failure (usage) as RemotePath::parse, and for those two
RemotePath addressable(const std::string& text);

/// Why nothing with this name can be addressed; empty when it can.
std::string whyNotAddressable(std::string_view name);

} // namespace tarncli
