#pragma once

#include "tarnd/store/Sentence.h"

/// Every failure that the storage reports.
namespace tarnd::sentences {

using Kind = ServiceError::Kind;

// clang-format off

// Paths and names.
inline constexpr Sentence badPath     {Kind::badRequest, "The path is not valid: {}"};
inline constexpr Sentence badUserName {Kind::badRequest, "The user name is not valid: {}"};

// Sessions and accounts.
inline constexpr Sentence badToken     {Kind::loginRequired, "The authentication token is not valid."};
inline constexpr Sentence sessionEnded {Kind::loginRequired, "Your session has ended. Log in again."};
inline constexpr Sentence unknownUser  {Kind::badRequest, "There is no user named \"{}\"."};
inline constexpr Sentence userExists   {Kind::conflict, "The user \"{}\" already exists."};
inline constexpr Sentence userOwnsData {Kind::conflict, "The user \"{}\" still owns files or folders; force the removal to delete them too."};

// Items.
inline constexpr Sentence notFound       {Kind::notFound, "The path does not exist."};
inline constexpr Sentence readOnly       {Kind::notAllowed, "You may read this item but not change or share it."};
inline constexpr Sentence fileExists     {Kind::conflict, "The file already exists."};
inline constexpr Sentence folderExists   {Kind::conflict, "The folder already exists."};
inline constexpr Sentence isFolder       {Kind::conflict, "The path names a folder, not a file."};
inline constexpr Sentence isFile         {Kind::conflict, "The path names a file, not a folder."};
inline constexpr Sentence parentMissing  {Kind::conflict, "The folder \"{}\" does not exist."};
inline constexpr Sentence folderNotEmpty {Kind::conflict, "The folder is not empty."};
inline constexpr Sentence rootFolder     {Kind::conflict, "The root folder cannot be deleted, moved or replaced."};
inline constexpr Sentence targetExists   {Kind::conflict, "The target of the move already exists."};
inline constexpr Sentence targetDiffers  {Kind::conflict, "A file can replace only a file, and a folder only an empty folder."};
inline constexpr Sentence intoItself     {Kind::conflict, "A folder cannot be moved into itself."};

// Uploads.
inline constexpr Sentence sizeDiffers {Kind::badRequest, "The upload does not have the announced length."};
inline constexpr Sentence storageFull {Kind::insufficientStorage, "The service has no room left to store this."};

// Handles, grants, links, versions.
inline constexpr Sentence unknownHandle     {Kind::badRequest, "The session has no open file handle with this id."};
inline constexpr Sentence unknownPermission {Kind::badRequest, "There is no permission with this id."};
inline constexpr Sentence unknownVersion    {Kind::badRequest, "The file has no such version."};
inline constexpr Sentence grantToOwner      {Kind::badRequest, "The item already belongs to this user."};
inline constexpr Sentence handleWithoutFile {Kind::conflict, "The file of this handle, or its folder, is no longer there."};

// Starting.
inline constexpr Sentence badDataDir          {Kind::conflict, "The data directory {} cannot be used: {}"};
inline constexpr Sentence databaseUnreachable {Kind::internal, "The database cannot be opened. What it says follows."};
inline constexpr Sentence databaseRights      {Kind::internal, "The database grants too little: its role needs SELECT, INSERT, UPDATE and DELETE on the tables of tarnd, and CREATE for the first start."};
inline constexpr Sentence badDatabaseUrl      {Kind::badRequest, "The database cannot be used: {}"};
inline constexpr Sentence dataInUse           {Kind::conflict, "Another tarnd is using the data directory {}; stop it first."};
inline constexpr Sentence noData              {Kind::badRequest, "There is no stored data in {}."};
inline constexpr Sentence foreignData         {Kind::conflict, "The contents in {} belong to another database; name the database they were stored with, or another data directory."};
inline constexpr Sentence otherFolder         {Kind::conflict, "The database has its contents in another folder than {}; is it mounted?"};
inline constexpr Sentence newerSchema         {Kind::conflict, "The database was written by a newer tarnd; use that one."};
inline constexpr Sentence contentsMissing     {Kind::internal, "Contents of stored files are missing; bring them back from a backup, or let `tarnd fsck --repair` set aside what they belong to."};

// Faults.
inline constexpr Sentence commitUnknown {Kind::internal, "The change may have happened or not: the database did not confirm it. Look before you try again."};
inline constexpr Sentence databaseGone  {Kind::unavailable, "The service cannot reach its database and has changed nothing. Try again."};
inline constexpr Sentence busy          {Kind::unavailable, "The service is busy and has changed nothing. Try again."};
inline constexpr Sentence internal      {Kind::internal, "The service failed to carry out the request."};

// clang-format on

} // namespace tarnd::sentences
