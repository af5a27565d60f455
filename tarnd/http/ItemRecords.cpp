#include "tarnd/http/ItemRecords.h"

namespace tarnd {

/// A folder has no size to tell: 0 would be that of an empty file.
void writeItem(XmlWriter& xml, const Item& item)
{
    xml.text("Name", item.name);
    xml.number("Created", item.created);
    xml.number("LastModified", item.lastModified);
    if (item.kind == ItemKind::file) xml.number("Size", item.size);
    xml.boolean("Writable", item.writable);
    xml.text("Watermark", item.watermark);
}

void writeResource(XmlWriter& xml, std::string_view path, std::string_view bucket)
{
    xml.element("Resource", [&] {
        xml.text("Path", path);
        xml.text("Bucket", bucket);
    });
}

void writeVersion(XmlWriter& xml, const VersionStamp& version)
{
    xml.text("VersionId", version.id);
    xml.number("VersionLabel", version.label);
}

} // namespace tarnd
