#pragma once

#include "cli/transfer/Upload.h"
#include "tarn/fileaccess/FileRecords.h"

#include <optional>
#include <string>

namespace tarncli {

/// The place in the service that the user named for what is stored: a file, or a folder that takes it in.
class UploadTarget {
public:
    struct Place {
        RemotePath remote;
        std::optional<connector::tarn::FileAttributes> found; ///< what is there
        bool isNew = false;                                   ///< and was made just now

        TargetFolder folder() const
        {
            if (isNew) return TargetFolder::empty;
            return found ? TargetFolder::exists : TargetFolder::missing;
        }
    };

    /// Looks at what is there. @throws Failure; conflict for a path that ends with '/' and is a file's
    UploadTarget(Connection& openConnection, const std::string& place);

    bool isFolder() const;
    /// @throws Failure unless the target is a folder that is there
    void requireFolder() const;
    /// A folder goes below the target, which is made for it when it is missing. @throws Failure
    void makeFor(Uploader& uploader);
    /// Where a file goes, or a folder. @param name  in the target; empty: its contents go there
    /// @throws Failure
    Place placeFor(const std::string& name, bool ofFolder) const;

    const RemotePath& path() const { return remote; }

private:
    Connection& connection;
    RemotePath remote;
    std::optional<connector::tarn::FileAttributes> found;
    bool isNew = false;
};

} // namespace tarncli
