#include "tarn/fileaccess/detail/FileReplies.h"

#include "tarn/fileaccess/FileRecordReaders.h"
#include "tarn/fileaccess/detail/PlainListing.h"

#include <Poco/Exception.h>

namespace connector::tarn {
namespace {

using Poco::XML::Document;
using Poco::XML::Element;

const Element& rootOf(const Document& reply)
{
    // Cannot happen to what the parser built; a document made by hand must not crash the reader.
    const Element* root = reply.documentElement();
    if (!root) throw Poco::NullPointerException();
    return *root;
}

template <class Record>
std::vector<Record> readEach(const Element* container, Record (*read)(const Element&))
{
    const auto children = childElements(container);
    std::vector<Record> records;
    records.reserve(children.size()); // growing by doubling would count thrice in a reply's memory
    for (const Element* child : children)
        records.push_back(read(*child));
    return records;
}

std::unique_ptr<FolderListResponse> readListing(const Document& reply)
{
    auto response = std::make_unique<FolderListResponse>();
    const Element& root = rootOf(reply);
    if (const Element* folder = root.getChildElement("FolderSummary")) {
        response->folder = readFolderSummary(*folder);
    }
    response->files = readEach(root.getChildElement("Files"), readFileSummary);
    response->folders = readEach(root.getChildElement("Folders"), readFolderSummary);
    return response;
}

} // namespace

std::unique_ptr<FileReadResponse> readFileContent(http::HttpClientResponse& reply)
{
    auto response = std::make_unique<FileReadResponse>();
    response->content = readContent(reply);
    response->contentType = "application/octet-stream";
    return response;
}

std::unique_ptr<FileAttributesReadResponse> readAttributes(const Document& reply)
{
    auto response = std::make_unique<FileAttributesReadResponse>();
    if (const Element* attributes = rootOf(reply).getChildElement("FileAttributes")) {
        response->attributes = readFileAttributes(*attributes);
    }
    return response;
}

std::unique_ptr<FolderListResponse> readFolderList(http::HttpClientResponse& reply)
{
    auto content = readContent(reply);
    if (auto listing = detail::plainListing(content.bytes())) return listing;
    const ReplyDocument document = parseXml(content.bytes());
    content = {}; // as large as what is read from the document
    return readListing(*document);
}

std::unique_ptr<SharedContentListResponse> readSharedContentList(const Document& reply)
{
    auto response = std::make_unique<SharedContentListResponse>();
    for (const Element* content : elementsNamed(rootOf(reply), "SharedContent")) {
        response->sharedContent.push_back(readSharedContent(*content));
    }
    return response;
}

} // namespace connector::tarn
