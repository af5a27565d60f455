#pragma once

#include "tarnd/store/ServiceError.h"

#include <string>
#include <string_view>

/// Every failure that the storage reports, next to each other. Each function makes the error ready to throw.
namespace tarnd::sentences {

using Kind = ServiceError::Kind;

inline ServiceError make(Kind kind, std::string_view sentence)
{
    return {kind, std::string(sentence)};
}

// Paths and names.
inline ServiceError badPath(std::string_view why)
{
    return {Kind::badRequest, "The path is not valid: " + std::string(why)};
}

inline ServiceError badUserName(std::string_view why)
{
    return {Kind::badRequest, "The user name is not valid: " + std::string(why)};
}

// Sessions and accounts.
inline ServiceError badToken()
{
    return make(Kind::loginRequired, "The authentication token is not valid.");
}

inline ServiceError sessionEnded()
{
    return make(Kind::loginRequired, "Your session has ended. Log in again.");
}

inline ServiceError unknownUser(const std::string& name)
{
    return {Kind::badRequest, "There is no user named \"" + name + "\"."};
}

inline ServiceError userExists(const std::string& name)
{
    return {Kind::conflict, "The user \"" + name + "\" already exists."};
}

inline ServiceError userOwnsData(const std::string& name)
{
    return {Kind::conflict,
            "The user \"" + name + "\" still owns files or folders; force the removal to delete them too."};
}

// Items.
inline ServiceError notFound()
{
    return make(Kind::notFound, "The path does not exist.");
}

inline ServiceError readOnly()
{
    return make(Kind::notAllowed, "You may read this item but not change or share it.");
}

inline ServiceError fileExists()
{
    return make(Kind::conflict, "The file already exists.");
}

inline ServiceError folderExists()
{
    return make(Kind::conflict, "The folder already exists.");
}

inline ServiceError isFolder()
{
    return make(Kind::conflict, "The path names a folder, not a file.");
}

inline ServiceError isFile()
{
    return make(Kind::conflict, "The path names a file, not a folder.");
}

inline ServiceError parentMissing(const std::string& parent)
{
    return {Kind::conflict, "The folder \"" + parent + "\" does not exist."};
}

inline ServiceError folderNotEmpty()
{
    return make(Kind::conflict, "The folder is not empty.");
}

inline ServiceError rootFolder()
{
    return make(Kind::conflict, "The root folder cannot be deleted, moved or replaced.");
}

inline ServiceError targetExists()
{
    return make(Kind::conflict, "The target of the move already exists.");
}

inline ServiceError targetDiffers()
{
    return make(Kind::conflict, "A file can replace only a file, and a folder only an empty folder.");
}

inline ServiceError intoItself()
{
    return make(Kind::conflict, "A folder cannot be moved into itself.");
}

// Uploads.
inline ServiceError sizeDiffers()
{
    return make(Kind::badRequest, "The upload does not have the announced length.");
}

inline ServiceError storageFull(std::string detail)
{
    return {Kind::insufficientStorage, "The service has no room left to store this.", std::move(detail)};
}

// Handles, grants, links, versions.
inline ServiceError unknownHandle()
{
    return make(Kind::badRequest, "The session has no open file handle with this id.");
}

inline ServiceError unknownPermission()
{
    return make(Kind::badRequest, "There is no permission with this id.");
}

inline ServiceError unknownVersion()
{
    return make(Kind::badRequest, "The file has no such version.");
}

inline ServiceError grantToOwner()
{
    return make(Kind::badRequest, "The item already belongs to this user.");
}

inline ServiceError handleWithoutFile()
{
    return make(Kind::conflict, "The file of this handle, or its folder, is no longer there.");
}

// Starting.
inline ServiceError badDataDir(const std::string& dataDir, const std::string& why)
{
    return {Kind::conflict, "The data directory " + dataDir + " cannot be used: " + why};
}

inline ServiceError databaseUnreachable(const std::string& why)
{
    return {Kind::internal, "The database cannot be opened: " + why};
}

inline ServiceError badDatabaseUrl(std::string_view why)
{
    return {Kind::badRequest, "The database cannot be used: " + std::string(why)};
}

inline ServiceError dataInUse(const std::string& dataDir)
{
    return {Kind::conflict, "Another tarnd is using the data directory " + dataDir + "; stop it first."};
}

inline ServiceError noData(const std::string& dataDir)
{
    return {Kind::badRequest, "There is no stored data in " + dataDir + "."};
}

inline ServiceError foreignData(const std::string& dataDir)
{
    return {Kind::conflict,
            "The contents in " + dataDir +
                " belong to another database; name the database they were stored with, or another "
                "data directory."};
}

inline ServiceError newerSchema()
{
    return make(Kind::conflict, "The database was written by a newer tarnd; use that one.");
}

inline ServiceError contentsMissing(std::string detail)
{
    return {Kind::internal,
            "Contents of stored files are missing; bring them back from a backup. `tarnd fsck` lists them.",
            std::move(detail)};
}

// Faults.
inline ServiceError internal(std::string detail)
{
    return {Kind::internal, "The service failed to carry out the request.", std::move(detail)};
}

} // namespace tarnd::sentences
