#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnd {

/// The path of an item inside a bucket, as names from the root folder down; no names is the root folder
/// itself.
///
/// Names are UTF-8 and kept byte for byte. Both readers refuse (badRequest) a path that does not begin with
/// '/', a name that is empty (so also a trailing '/'), "." or "..", longer than 255 bytes, not valid UTF-8,
/// or that holds
/// '/', a control character (NUL, C0, DEL, C1) or a character that no XML reply can carry.
class ItemPath {
public:
    /// The root folder.
    ItemPath() = default;

    /// From the percent-encoded path of a URL: split at '/' first, then each name decoded once, so that "%2F"
    /// can never become a separator. '+' stands for itself.
    static ItemPath fromUrl(std::string_view encoded);

    /// From text that is already decoded, such as the query values "path" and "targetPath".
    static ItemPath fromText(std::string_view decoded);

    bool isRoot() const noexcept { return segments.empty(); }

    const std::vector<std::string>& names() const noexcept { return segments; }

    /// The last name. @pre !isRoot()
    const std::string& name() const { return segments.back(); }

    /// The folder that holds this item. @pre !isRoot()
    ItemPath parent() const;

    /// Decoded form: "/" or "/a/b".
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

/// Why `name` cannot name an item or a user, as an ending for a sentence; empty when it can.
std::string whyNameIsBad(std::string_view name);

} // namespace tarnd
