#include "cli/remote/RemotePath.h"

#include "cli/remote/StoredNames.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

namespace tarncli {

namespace {

constexpr std::size_t longestName = 255; // bytes

std::string folderForRelative = "/";

std::string quote(const std::string& text)
{
    return "\"" + escaped(text) + "\"";
}

void refuseBadNames(const std::string& text, std::string_view path)
{
    while (!path.empty()) {
        path.remove_prefix(1);
        const auto name = path.substr(0, path.find('/'));
        path.remove_prefix(name.size());
        if (name.empty())
            throw usageError("The remote path " + quote(text) + " contains an empty name (\"//\").");
        // Proxies on the way resolve these, or do not: the service would be asked for another item.
        if (name == "." || name == "..")
            throw usageError("The remote path " + quote(text) + " contains \"" + std::string(name) +
                             "\"; write it out from the root.");
    }
}

} // namespace

RemotePath RemotePath::parse(const std::string& text)
{
    auto result = parseTyped(text);
    result.path = encodedName(result.path);
    return result;
}

RemotePath RemotePath::ofStored(const std::string& text)
{
    const auto slash = text.find('/');
    return {slash == 0 ? "" : text.substr(0, slash - 1), text.substr(slash)};
}

RemotePath RemotePath::parseTyped(const std::string& typed)
{
    RemotePath result;
    // With a ':' before the first '/' it names a user.
    const bool isRelative = folderForRelative != "/" && !typed.empty() && typed.front() != '/' &&
                            typed.find(':') >= typed.find('/');
    const auto text = isRelative ? folderForRelative + "/" + typed : typed;
    if (text.empty()) throw usageError("A remote path is empty; the root folder is \"/\".");
    if (!isValidUtf8(text)) throw usageError("The remote path " + quote(text) + " is not valid UTF-8.");
    // In "/a:b" the ':' is part of a name.
    const auto colon = text.front() == '/' ? std::string::npos : text.find(':');
    if (colon == 0) throw usageError("The remote path " + quote(text) + " names no user before the ':'.");
    if (colon != std::string::npos) result.bucket = text.substr(0, colon);
    result.path = colon == std::string::npos ? text : text.substr(colon + 1);
    if (result.bucket.find('/') != std::string::npos || result.path.empty() || result.path.front() != '/') {
        const bool bucketIsFine = result.bucket.find('/') == std::string::npos;
        RemotePath corrected{bucketIsFine ? result.bucket : "", "/" + (bucketIsFine ? result.path : text)};
        throw usageError("The remote path " + quote(text) + " does not begin with '/'; did you mean " +
                         quote(corrected.text()) + "?");
    }
    result.asFolder = result.path.back() == '/';
    if (result.isRoot()) return result;
    if (result.asFolder) result.path.pop_back();
    refuseBadNames(text, result.path);
    return result;
}

std::string RemotePath::name() const
{
    return path.substr(path.rfind('/') + 1);
}

RemotePath RemotePath::child(const std::string& childName) const
{
    return {bucket, (isRoot() ? "/" : path + "/") + childName};
}

RemotePath RemotePath::parent() const
{
    const auto end = path.rfind('/');
    return {bucket, end == 0 ? "/" : path.substr(0, end)};
}

std::string RemotePath::text() const
{
    const auto shown = decodedName(path);
    return bucket.empty() ? shown : bucket + ":" + shown;
}

std::string RemotePath::quoted() const
{
    return quote(text());
}

void setDefaultFolder(const std::string& folder)
{
    folderForRelative = "/";
    if (folder.empty()) return;
    const auto path = RemotePath::parseTyped(folder);
    if (!path.bucket.empty())
        throw usageError("The default folder " + quote(folder) + " must be in your own storage.");
    folderForRelative = path.path;
}

const std::string& defaultFolder()
{
    return folderForRelative;
}

RemotePath addressable(const std::string& text)
{
    auto result = RemotePath::parse(text);
    if (const auto why = whyNotAddressable(result.path); !why.empty())
        throw usageError("The remote path " + quote(text) + " cannot be used: " + why);
    return result;
}

std::string whyNotStorable(std::string_view stored)
{
    if (auto why = whyNotAddressable(stored); !why.empty()) return why;
    if (hasControlCharacter(stored))
        return "The service takes no names with control characters; choose another name, or use "
               "--encode-names.";
    if (stored.size() > longestName)
        return "The service takes no names of more than " + std::to_string(longestName) + " bytes" +
               (namesAreEncoded() ? ", which this one has when it is encoded." : ".");
    return {};
}

std::string whyNotAddressable(std::string_view stored)
{
    if (!isValidUtf8(stored)) return "The name is not valid UTF-8.";
    // The library puts paths into URLs with these two as they are, and the URL's path ends there.
    for (const char c : {'?', '#'})
        if (stored.find(c) != std::string_view::npos)
            return std::string("The service cannot be asked for names with '") + c +
                   "'; choose another name, or use --encode-names.";
    return {};
}

} // namespace tarncli
