#include "tarnd/http/Handlers.h"
#include "tarnd/http/ItemRecords.h"

namespace tarnd {

namespace {

void writeItems(XmlWriter& xml, std::string_view list, std::string_view record,
                const std::vector<Item>& items)
{
    xml.element(list, [&] {
        for (const auto& item : items)
            xml.element(record, [&] { writeItem(xml, item); });
    });
}

} // namespace

Reply readAttributes(Call& call)
{
    const auto item = call.store.catalog().attributes(call.caller, itemOf(call));
    XmlWriter xml("Response");
    xml.element("FileAttributes", [&] {
        xml.text("Type", item.kind == ItemKind::file ? "FILE" : "FOLDER");
        writeItem(xml, item);
    });
    return xmlReply(std::move(xml));
}

Reply move(Call& call)
{
    const auto& query = call.request.query();
    // An empty bucket is the caller's own, as in every address.
    const Location target{ItemPath::fromText(query.text("targetPath")), query.text("targetBucket")};
    call.store.catalog().move(call.caller, itemOf(call), target, query.flag("moveTargetOverwrite"));
    return doneReply();
}

Reply createFolder(Call& call)
{
    call.store.catalog().createFolder(call.caller, itemOf(call));
    return doneReply();
}

Reply listFolder(Call& call)
{
    const auto listing = call.store.catalog().list(call.caller, itemOf(call));
    XmlWriter xml("Response");
    xml.element("FolderSummary", [&] { writeItem(xml, listing.folder); });
    writeItems(xml, "Files", "FileSummary", listing.files);
    writeItems(xml, "Folders", "FolderSummary", listing.folders);
    return xmlReply(std::move(xml));
}

Reply deleteFolder(Call& call)
{
    const bool forceRecursive = call.request.query().flag("forceRecursive");
    call.store.catalog().deleteFolder(call.caller, itemOf(call), forceRecursive);
    return doneReply();
}

} // namespace tarnd
