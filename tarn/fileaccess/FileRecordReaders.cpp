#include "tarn/fileaccess/FileRecordReaders.h"

#include "tarn/fileaccess/detail/RecordFields.h"

namespace connector::tarn {
namespace {

using Poco::XML::Element;

constexpr auto attributesFields =
    std::tuple_cat(std::tuple{Field{"Type", &FileAttributes::type}}, fileFields<FileAttributes>);

constexpr std::tuple sharerFields{Field{"SharedByUserId", &SharedContent::sharedByUserId}};

template <class Shared>
constexpr std::tuple resourceFields{
    Field{"Path", &Shared::path},
    Field{"Bucket", &Shared::bucket},
};

template <class Record, class Table>
Record readRecord(const Element& element, const Table& table)
{
    Record record;
    readFields(element, record, table);
    return record;
}

template <class Shared, class Table>
std::vector<Shared> readShared(const Element* container, const Table& table)
{
    const auto children = childElements(container);
    std::vector<Shared> records;
    records.reserve(children.size()); // growing by doubling would count thrice in a reply's memory
    for (const Element* element : children) {
        auto& record = records.emplace_back(readRecord<Shared>(*element, table));
        if (const Element* resource = element->getChildElement("Resource")) {
            readFields(*resource, record, resourceFields<Shared>);
        }
    }
    return records;
}

} // namespace

FileSummary readFileSummary(const Element& element)
{
    return readRecord<FileSummary>(element, fileFields<FileSummary>);
}

FolderSummary readFolderSummary(const Element& element)
{
    return readRecord<FolderSummary>(element, folderFields);
}

FileAttributes readFileAttributes(const Element& element)
{
    return readRecord<FileAttributes>(element, attributesFields);
}

SharedContent readSharedContent(const Element& element)
{
    auto content = readRecord<SharedContent>(element, sharerFields);
    content.sharedFiles =
        readShared<SharedFileSummary>(element.getChildElement("SharedFiles"), fileFields<FileSummary>);
    content.sharedFolders =
        readShared<SharedFolderSummary>(element.getChildElement("SharedFolders"), folderFields);
    return content;
}

} // namespace connector::tarn
