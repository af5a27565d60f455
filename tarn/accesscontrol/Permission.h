#pragma once

#include <string>

namespace connector::tarn {

/// One grant: who may do what with which item. Wire: the element names stand beside the fields; what is
/// missing or ambiguous stays empty.
struct Permission {
    std::u16string path;        ///< "Path" in "Resource", when the grant has exactly one "Resource"
    std::u16string bucket;      ///< "Bucket" in "Resource"
    std::u16string subjectName; ///< "SubjectName" in "Subject", when the grant has exactly one "Subject"
    std::string permissionId;   ///< "PermissionId", UTF-8
    std::string operation;      ///< "Operation", such as "READ_ONLY"
    std::string status;         ///< "Status": whether the grant is in force or waits for its user
};

} // namespace connector::tarn
