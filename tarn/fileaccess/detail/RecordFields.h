#pragma once

#include "tarn/fileaccess/FileRecords.h"
#include "tarn/protocol/ReplyFields.h"

/// Where the fields of files and folders stand in a reply.
namespace connector::tarn {

/// The fields that files have in common, whatever else a record holds.
template <class File>
inline constexpr std::tuple fileFields{
    Field{"Name", &File::name},
    Field{"Created", &File::created},
    Field{"LastModified", &File::lastModified},
    Field{"Size", &File::size},
    Field{"Writable", &File::writable},
    Field{"Watermark", &File::watermark},
};

inline constexpr std::tuple folderFields{
    Field{"Name", &FolderSummary::name},
    Field{"Created", &FolderSummary::created},
    Field{"LastModified", &FolderSummary::lastModified},
    Field{"Writable", &FolderSummary::writable},
    Field{"Watermark", &FolderSummary::watermark},
};

} // namespace connector::tarn
