#include "tarn/fileaccess/FileRecordReaders.h"

#include "tarn/protocol/ReplyXml.h"
#include "tarn/protocol/WireText.h"

namespace connector::tarn {
namespace {

using Poco::XML::Element;

/// The fields that all records have in common.
template <class Record>
void readSummary(const Element& element, Record& record)
{
    record.name = fromWire(childText(element, "Name"));
    record.created = std::stoull(childText(element, "Created", "0"));
    record.lastModified = std::stoull(childText(element, "LastModified", "0"));
    if constexpr (requires { record.size; }) record.size = std::stoull(childText(element, "Size", "0"));
    record.writable = flagFromWire(childText(element, "Writable", "false"));
    record.watermark = childText(element, "Watermark");
}

template <class SharedRecord>
SharedRecord readShared(const Element& element)
{
    SharedRecord record;
    readSummary(element, record);
    if (const Element* resource = element.getChildElement("Resource")) {
        record.path = fromWire(childText(*resource, "Path"));
        record.bucket = fromWire(childText(*resource, "Bucket"));
    }
    return record;
}

} // namespace

FileSummary readFileSummary(const Element& element)
{
    FileSummary record;
    readSummary(element, record);
    return record;
}

FolderSummary readFolderSummary(const Element& element)
{
    FolderSummary record;
    readSummary(element, record);
    return record;
}

FileAttributes readFileAttributes(const Element& element)
{
    FileAttributes record;
    record.type = childText(element, "Type");
    readSummary(element, record);
    return record;
}

SharedContent readSharedContent(const Element& element)
{
    SharedContent content;
    content.sharedByUserId = fromWire(childText(element, "SharedByUserId"));
    for (const Element* file : childElements(element.getChildElement("SharedFiles"))) {
        content.sharedFiles.push_back(readShared<SharedFileSummary>(*file));
    }
    for (const Element* folder : childElements(element.getChildElement("SharedFolders"))) {
        content.sharedFolders.push_back(readShared<SharedFolderSummary>(*folder));
    }
    return content;
}

} // namespace connector::tarn
