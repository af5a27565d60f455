#pragma once

#include "tarn/fileaccess/FileRecords.h"
#include "tarn/foundation/Export.h"

#include <Poco/DOM/Element.h>

/// From elements of a reply to records. A field counts only when exactly one descendant bears its name.
/// @throws std::invalid_argument or std::out_of_range, both "stoull", when a number is malformed or exceeds 64
/// bits
namespace connector::tarn {

TARN_API FileSummary readFileSummary(const Poco::XML::Element& element);
TARN_API FolderSummary readFolderSummary(const Poco::XML::Element& element);
TARN_API FileAttributes readFileAttributes(const Poco::XML::Element& element);
TARN_API SharedContent readSharedContent(const Poco::XML::Element& element);

} // namespace connector::tarn
