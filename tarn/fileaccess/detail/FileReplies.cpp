#include "tarn/fileaccess/detail/FileReplies.h"

#include "tarn/fileaccess/FileRecordReaders.h"

#include <Poco/Exception.h>

namespace connector::tarn {
namespace {

using Poco::XML::Document;
using Poco::XML::Element;

const Element& rootOf(const Document& reply)
{
    const Element* root = reply.documentElement();
    if (!root) throw Poco::NullPointerException();
    return *root;
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

std::unique_ptr<FolderListResponse> readFolderList(const Document& reply)
{
    auto response = std::make_unique<FolderListResponse>();
    const Element& root = rootOf(reply);
    if (const Element* folder = root.getChildElement("FolderSummary")) {
        response->folder = readFolderSummary(*folder);
    }
    for (const Element* file : childElements(root.getChildElement("Files"))) {
        response->files.push_back(readFileSummary(*file));
    }
    for (const Element* folder : childElements(root.getChildElement("Folders"))) {
        response->folders.push_back(readFolderSummary(*folder));
    }
    return response;
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
