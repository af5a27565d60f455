#include "cli/transfer/UploadTarget.h"

#include "cli/remote/FileAbove.h"
#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"

namespace tarncli {

UploadTarget::UploadTarget(Connection& openConnection, const std::string& place)
    : connection(openConnection), remote(addressable(place)), found(findAttributes(connection, remote))
{
    if (remote.asFolder && found && !isFolder())
        throw Failure(ExitCode::conflict, remote.quoted() + " is a file; leave out the '/' at the end.");
}

bool UploadTarget::isFolder() const
{
    return found && tarncli::isFolder(*found);
}

void UploadTarget::requireFolder() const
{
    if (!found)
        throw withFileAbove(connection, remote,
                            Failure(ExitCode::notFound, "There is no folder " + remote.quoted() +
                                                            "; make it with `tarn mkdir -p`."));
    if (!isFolder())
        throw Failure(ExitCode::conflict, remote.quoted() + " is a file; several sources need a folder.");
}

void UploadTarget::makeFor(Uploader& uploader)
{
    if (found && !isFolder())
        throw Failure(ExitCode::conflict, remote.quoted() + " is a file; a folder cannot replace it.");
    if (found) return;
    uploader.makeFolder(remote);
    found.emplace().type = "FOLDER";
    isNew = true;
}

UploadTarget::Place UploadTarget::placeFor(const std::string& name, bool ofFolder) const
{
    if (name.empty() || !(ofFolder || isFolder())) return {remote, found, isNew};
    if (const auto why = whyNotStorable(name); !why.empty())
        throw usageError("\"" + escaped(decodedName(name)) + "\" cannot be stored under its name: " + why);
    Place place{remote.child(name), {}, false};
    if (!isNew) place.found = findAttributes(connection, place.remote);
    if (!place.found) return place;
    if (ofFolder && !tarncli::isFolder(*place.found))
        throw Failure(ExitCode::conflict, place.remote.quoted() + " is a file; a folder cannot replace it.");
    if (!ofFolder && tarncli::isFolder(*place.found))
        throw Failure(ExitCode::conflict, place.remote.quoted() + " is a folder; a file cannot replace it.");
    return place;
}

} // namespace tarncli
