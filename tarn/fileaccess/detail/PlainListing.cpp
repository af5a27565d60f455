#include "tarn/fileaccess/detail/PlainListing.h"

#include "tarn/fileaccess/detail/RecordFields.h"
#include "tarn/protocol/detail/PlainText.h"

#include <array>
#include <bitset>
#include <string>

namespace connector::tarn::detail {
namespace {

/// Takes the fields of one record after another.
class RecordReader {
public:
    virtual void openRecord() = 0;

    /// @return whether it is a field of the record, and met for the first time
    virtual bool openField(std::string_view name) = 0;
    virtual void addText(std::string_view piece) = 0;

    /// @throws as readValue
    virtual void closeField() = 0;

protected:
    ~RecordReader() = default;
};

template <class Record, const auto& table>
class Records final : public RecordReader {
public:
    void openRecord() override
    {
        records.emplace_back();
        seen.reset();
        field = count - 1;
    }

    bool openField(std::string_view name) override
    {
        // Nearly always they come in the same order: the next one is the first to be compared.
        for (std::size_t step = 1; step <= count; ++step) {
            const auto candidate = (field + step) % count;
            if (names[candidate] != name) continue;
            field = candidate;
            text.clear();
            const bool isNew = !seen[field];
            seen.set(field);
            return isNew;
        }
        return false;
    }

    void addText(std::string_view piece) override { text += piece; }

    void closeField() override
    {
        std::size_t index = 0;
        const auto read = [&](const auto& each) {
            if (index++ == field) readValue(text, records.back().*each.member);
        };
        std::apply([&](const auto&... each) { (read(each), ...); }, table);
    }

    std::vector<Record> records;

private:
    static constexpr auto names =
        std::apply([](const auto&... each) { return std::array{std::string_view(each.element)...}; }, table);
    static constexpr std::size_t count = names.size();

    std::bitset<count> seen; ///< of the record that is open
    std::size_t field = 0;   ///< that is open
    std::string text;        ///< of the open field
};

/// Follows the course of a listing, and wants nothing else.
class ListingReader final : public PlainEvents {
public:
    bool onStart(std::string_view name) override
    {
        ++depth;
        if (depth == rootDepth) return isPlain(name);
        if (depth == rootDepth + 1) return openPart(name);
        if (depth == recordDepth) return openRecord(name);
        return depth == recordDepth + 1 && part->openField(name);
    }

    bool onText(std::string_view piece) override
    {
        // Between elements it is white space to be read more easily, and whatever it is, nobody's value.
        if (isInField()) part->addText(piece);
        return true;
    }

    bool onEnd() override
    {
        if (isInField()) part->closeField();
        --depth;
        return true;
    }

    std::unique_ptr<FolderListResponse> listing()
    {
        auto response = std::make_unique<FolderListResponse>();
        if (!folder.records.empty()) response->folder = std::move(folder.records.front());
        response->files = std::move(files.records);
        response->folders = std::move(folders.records);
        return response;
    }

private:
    static constexpr std::size_t rootDepth = 1;
    static constexpr std::array<std::string_view, 3> partNames{"FolderSummary", "Files", "Folders"};

    /// Whether a name has no namespace to be looked for.
    static bool isPlain(std::string_view name)
    {
        return name.size() <= ReplyLimits().nameLength && name.find(':') == name.npos;
    }

    bool isInField() const { return part && depth == recordDepth + 1; }

    bool openPart(std::string_view name)
    {
        const std::array<RecordReader*, partNames.size()> parts{&folder, &files, &folders};
        const auto index = static_cast<std::size_t>(std::ranges::find(partNames, name) - partNames.begin());
        if (index == parts.size() || seen[index]) return false;
        seen.set(index);
        part = parts[index];
        itemName.clear();
        const bool isRecordItself = part == &folder;
        recordDepth = isRecordItself ? depth : depth + 1;
        if (isRecordItself) folder.openRecord();
        return true;
    }

    /// Whatever items are called, they are called the same.
    bool openRecord(std::string_view name)
    {
        if (itemName.empty() && isPlain(name)) itemName = name;
        part->openRecord();
        return itemName == name;
    }

    std::size_t depth = 0;
    std::size_t recordDepth = 0;  ///< in `part`
    RecordReader* part = nullptr; ///< that was opened last
    std::bitset<partNames.size()> seen;
    std::string itemName; ///< in `part`
    Records<FolderSummary, folderFields> folder;
    Records<FileSummary, fileFields<FileSummary>> files;
    Records<FolderSummary, folderFields> folders;
};

} // namespace

std::unique_ptr<FolderListResponse> plainListing(std::string_view text)
{
    ListingReader reader;
    return readPlain(text, ReplyLimits(), reader) ? reader.listing() : nullptr;
}

} // namespace connector::tarn::detail
