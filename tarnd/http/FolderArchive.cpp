#include "tarnd/http/FolderArchive.h"

#include "tarnd/http/HtmlPage.h"
#include "tarnd/http/PercentEncoding.h"
#include "tarnd/http/ZipStream.h"
#include "tarnd/store/Sentences.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tarnd {

namespace {

/// Some programs take a backslash for a step into a folder, also out of the one that they unpack into. What takes its
/// place looks alike and is no other name's.
std::string safeName(std::string_view name)
{
    std::string safe;
    for (const char c : name)
        c == '\\' ? safe += "\uFF3C" : safe += c;
    return safe;
}

ItemPath childOf(const ItemPath& folder, const std::string& name)
{
    auto names = folder.names();
    names.push_back(name);
    return ItemPath(std::move(names));
}

class FolderArchive : public BodySource {
public:
    FolderArchive(OpenItem theOpen, const ItemPath& path, const std::string& name, const Listing& listing)
        : open(std::move(theOpen)), start(path)
    {
        enter(path, name, listing);
    }

    std::size_t read(char* data, std::size_t size) override
    {
        for (;;) {
            if (const auto count = zip.take(data, size)) return count;
            if (!addMore()) return 0;
        }
    }

private:
    struct Level {
        ItemPath folder;
        std::string archived;           ///< its path in the archive
        std::vector<std::string> names; ///< of the entries that are to come, the next one last
    };

    void enter(const ItemPath& path, const std::string& archived, const Listing& listing)
    {
        zip.addFolder(archived, listing.folder.lastModified);
        auto& level = levels.emplace_back(Level{path, archived, {}});
        for (const auto* items : {&listing.files, &listing.folders})
            for (const auto& item : *items)
                level.names.push_back(item.name);
        std::reverse(level.names.begin(), level.names.end());
    }

    bool addMore()
    {
        if (file) {
            addContent();
            return true;
        }
        while (!levels.empty() && levels.back().names.empty())
            levels.pop_back();
        if (levels.empty()) return zip.addEnd();
        auto& level = levels.back();
        const auto name = std::move(level.names.back());
        level.names.pop_back();
        addItem(childOf(level.folder, name), level.archived + "/" + safeName(name));
        return true;
    }

    void addItem(const ItemPath& path, const std::string& archived)
    {
        auto item = openIfThere(path);
        if (!item) return;
        if (const auto* listing = std::get_if<Listing>(&*item)) return enter(path, archived, *listing);
        file = std::get<OpenContent>(std::move(*item));
        left = static_cast<std::uint64_t>(file->size);
        zip.beginFile(archived, file->modified, left);
    }

    /// Nothing where the item has gone; an archive from which all else is missing would look like a whole one.
    std::optional<std::variant<OpenContent, Listing>> openIfThere(const ItemPath& path)
    {
        try {
            return open(path);
        } catch (const ServiceError& error) {
            if (error.kind() != ServiceError::Kind::notFound) throw;
        }
        open(start);
        return {};
    }

    void addContent()
    {
        std::array<char, ZipStream::mostContent> piece;
        const auto wanted = std::min<std::uint64_t>(left, piece.size());
        const auto got = wanted == 0 ? 0 : file->bytes.read(piece.data(), wanted);
        if (got == 0 && wanted > 0)
            throw sentences::internal.because("a content is shorter than it should be; see tarnd fsck");
        if (got > 0) zip.addContent({piece.data(), got});
        left -= got;
        if (left > 0) return;
        zip.endFile();
        file.reset();
    }

    const OpenItem open;
    const ItemPath start;
    ZipStream zip;
    std::vector<Level> levels;
    std::optional<OpenContent> file; ///< whose content is being added
    std::uint64_t left = 0;          ///< bytes of it
};

} // namespace

Reply folderArchive(OpenItem open, const ItemPath& path, const Listing& listing)
{
    const bool isRoot = listing.folder.name == "/";
    const auto name = isRoot ? "files" : safeName(listing.folder.name);
    Reply reply;
    reply.contentType = "application/zip";
    reply.source = std::make_shared<FolderArchive>(std::move(open), path, name, listing);
    reply.headers.emplace_back("Content-Disposition",
                               "attachment; filename*=UTF-8''" + percentEncode(name) + ".zip");
    addSafetyHeaders(reply, "sandbox; default-src 'none'");
    return reply;
}

} // namespace tarnd
