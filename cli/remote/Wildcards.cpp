#include "cli/remote/Wildcards.h"

#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"

#include <algorithm>
#include <clocale>
#include <fnmatch.h>

namespace tarncli {

using namespace connector::tarn;

namespace {

/// Names are UTF-8 whatever the locale of the user, and '?' is a character, not a byte.
class Utf8Locale {
public:
    Utf8Locale() : locale(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), before(::uselocale(locale)) {}

    ~Utf8Locale()
    {
        ::uselocale(before);
        if (locale != nullptr) ::freelocale(locale);
    }

    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    locale_t locale;
    locale_t before;
};

bool isPattern(std::string_view text)
{
    return text.find_first_of("*?[") != std::string_view::npos;
}

/// What a listing holds of one pattern; just the one of that very name when there is such.
class Matching {
public:
    Matching(const RemotePath& folderPath, std::string namePattern)
        : folder(folderPath), pattern(std::move(namePattern))
    {
    }

    template <class Summaries>
    void add(const Summaries& summaries)
    {
        for (const auto& summary : summaries) {
            const auto stored = toUtf8(summary.name);
            const auto name = decodedName(stored);
            const bool isLiteral = name == pattern;
            if (!isLiteral && !isMatch(name)) continue;
            const RemoteItem item{folder.child(stored), attributesOf(summary)};
            if (isLiteral) literal = item;
            // What cannot be asked for by itself would be taken for another.
            if (isUsable(stored)) items.push_back(item);
        }
    }

    std::vector<RemoteItem> taken() { return literal ? std::vector{*literal} : std::move(items); }

private:
    /// A leading '.' must be written, as in a shell.
    bool isMatch(const std::string& name) const
    {
        return (!name.starts_with('.') || pattern.starts_with('.')) && matches(pattern, name);
    }

    static bool isUsable(const std::string& name)
    {
        return name != "." && name != ".." && name.find('/') == std::string::npos &&
               whyNotAddressable(name).empty();
    }

    RemotePath folder;
    std::string pattern;
    std::vector<RemoteItem> items;
    std::optional<RemoteItem> literal;
};

/// Nothing where a folder is not there: the pattern that led to it may have matched files, too.
std::vector<RemoteItem> matchesIn(Connection& connection, const RemotePath& folder, const std::string& name)
{
    Matching found(folder, name);
    try {
        const auto listing = connection.call([&] { return requestListing(connection, folder); });
        found.add(listing->folders);
        found.add(listing->files);
    } catch (const std::exception&) {
        const auto error = std::current_exception();
        if (!isRefusal(error, reasons::notFound) && !isRefusal(error, reasons::isFile))
            throw about(folder.quoted(), explain(error));
    }
    return found.taken();
}

} // namespace

bool matches(const std::string& pattern, const std::string& name, LetterCase letterCase)
{
    const Utf8Locale utf8;
    const int flags = letterCase == LetterCase::ignored ? FNM_CASEFOLD : 0;
    return ::fnmatch(pattern.c_str(), name.c_str(), flags) == 0;
}

RemotePath addressableOrPattern(const std::string& text)
{
    auto path = RemotePath::parseTyped(text);
    if (!isPattern(path.path)) return addressable(text);
    // A '?' in a pattern stands for a character; the names that are found are checked in their turn.
    auto checked = path.path;
    std::ranges::replace(checked, '?', '*');
    if (whyNotAddressable(encodedName(checked)).empty()) return path;
    return addressable(text); // says what is wrong
}

bool hasWildcards(const RemotePath& path)
{
    return isPattern(path.path);
}

std::vector<RemoteItem> expand(Connection& connection, const std::string& text)
{
    const auto whole = addressableOrPattern(text);
    if (!isPattern(whole.path)) return {{whole, {}}};
    std::vector<RemoteItem> items{{{whole.bucket, "/"}, {}}};
    for (std::size_t begin = 1; begin <= whole.path.size();) {
        const auto end = std::min(whole.path.find('/', begin), whole.path.size());
        const auto name = whole.path.substr(begin, end - begin);
        begin = end + 1;
        std::vector<RemoteItem> below;
        for (const auto& item : items) {
            if (!isPattern(name))
                below.push_back({item.where.child(encodedName(name)), {}});
            else if (!item.known || isFolder(*item.known))
                std::ranges::move(matchesIn(connection, item.where, name), std::back_inserter(below));
        }
        items = std::move(below);
    }
    if (whole.asFolder)
        std::erase_if(items, [](const auto& item) { return item.known && !isFolder(*item.known); });
    // A plain name behind a pattern is there in some of the folders only.
    if (!items.empty() && !items.front().known) {
        for (auto& item : items)
            item.known = findAttributes(connection, item.where);
        std::erase_if(items, [](const auto& item) { return !item.known; });
    }
    if (items.empty()) throw Failure(ExitCode::notFound, "Nothing matches " + whole.quoted() + ".");
    for (auto& item : items)
        item.where.asFolder = whole.asFolder;
    return items;
}

FileAttributes attributesOf(Connection& connection, const RemoteItem& item)
{
    return item.known ? *item.known : attributesOf(connection, item.where);
}

} // namespace tarncli
