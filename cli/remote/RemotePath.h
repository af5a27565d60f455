#pragma once

#include <string>
#include <string_view>

namespace tarncli {

/// Where something is stored: a path in a user's bucket.
struct RemotePath {
    std::string bucket;    ///< UTF-8; empty: the bucket of who is logged in
    std::string path;      ///< UTF-8, begins with '/', no '/' at the end except for the root; as it is stored
    bool asFolder = false; ///< was written with a '/' at the end: must be a folder

    /// Reads `/docs/a.txt` or `alice:/docs/a.txt`, and `a.txt` where there is a default folder. Nothing is normalised:
    /// empty names, "." and ".." are refused.
    /// @throws Failure (usage) that says how to write it
    static RemotePath parse(const std::string& text);
    /// Likewise, with the names as they were typed: for patterns.
    static RemotePath parseTyped(const std::string& text);
    /// What stored() gave.
    static RemotePath ofStored(const std::string& text);

    bool isRoot() const { return path == "/"; }

    /// The last name; empty for the root.
    std::string name() const;

    RemotePath child(const std::string& childName) const;
    /// @pre not the root
    RemotePath parent() const;

    /// As the user writes it.
    std::string text() const;

    /// As it is, for files that are read again.
    std::string stored() const { return bucket.empty() ? path : bucket + ":" + path; }

    /// As a message shows it: quoted and escaped.
    std::string quoted() const;
};

/// Where paths begin that do not begin with '/'; "/" at first, and then there are none such. For this process; set before
/// paths are read. @throws Failure (usage) for what is no path
void setDefaultFolder(const std::string& folder);

/// What is meant where no path is given: the default folder.
const std::string& defaultFolder();

/// Reads a path that becomes part of a request's URL, where '?' and '#' would cut it short
/// and reach another item.
/// @throws Failure (usage) as RemotePath::parse, and for those two
RemotePath addressable(const std::string& text);

/// Why nothing that is stored under this name can be addressed; empty when it can.
std::string whyNotAddressable(std::string_view stored);

/// Why the service takes nothing under this name, which stands between two '/'; empty when it can.
std::string whyNotStorable(std::string_view stored);

} // namespace tarncli
