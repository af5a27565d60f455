#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnd {

/// The path of an item inside a bucket, as names from the root folder down; no names is the root folder itself.
///
/// Names are UTF-8 and kept byte for byte. Refused (badRequest) is a name that is empty, "." or "..", longer
/// than 255 bytes, not valid UTF-8, or that holds '/', a control character (NUL, C0, DEL, C1) or a character
/// that no XML reply can carry.
class ItemPath {
public:
    /// The root folder.
    ItemPath() = default;

    /// @throws ServiceError badRequest for a bad name
    explicit ItemPath(std::vector<std::string> names);

    /// From a path as text, such as the query values "path" and "targetPath".
    /// @throws ServiceError badRequest for a bad name, a '/' at the end and a text that does not begin with '/'
    static ItemPath fromText(std::string_view text);

    bool isRoot() const noexcept { return segments.empty(); }

    const std::vector<std::string>& names() const noexcept { return segments; }

    /// The last name. @pre !isRoot()
    const std::string& name() const { return segments.back(); }

    /// The folder that holds this item. @pre !isRoot()
    ItemPath parent() const;

    /// "/" or "/a/b".
    std::string text() const;

    bool operator==(const ItemPath&) const = default;

private:
    std::vector<std::string> segments;
};

/// Where an item lives.
struct Location {
    ItemPath path;
    std::string bucket; ///< the name of the user who owns the item, UTF-8; empty: the caller's own
};

/// The names between the slashes of a path, unchecked; none for "/".
/// @throws ServiceError badRequest for a path that does not begin with '/'
std::vector<std::string_view> splitPath(std::string_view path);

/// Why `name` cannot name an item or a user, as an ending for a sentence; empty when it can.
std::string whyNameIsBad(std::string_view name);

} // namespace tarnd
