#pragma once

#include "tarnd/http/XmlWriter.h"
#include "tarnd/store/Item.h"

#include <string_view>

namespace tarnd {

/// The fields of a file or folder as every listing shows them, without an element around them: "Name",
/// "Created", "LastModified", "Size" (files only), "Writable", "Watermark". Each occurs once: readers take a
/// field that occurs twice below its record for missing.
void writeItem(XmlWriter& xml, const Item& item);

/// "Resource" with "Path" and "Bucket".
void writeResource(XmlWriter& xml, std::string_view path, std::string_view bucket);

/// "VersionId" and "VersionLabel".
void writeVersion(XmlWriter& xml, const VersionStamp& version);

} // namespace tarnd
