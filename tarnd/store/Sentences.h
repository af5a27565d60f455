#pragma once

#include "tarnd/store/Sentence.h"

/// Every failure that the storage reports.
namespace tarnd::sentences {

using Kind = ServiceError::Kind;

// clang-format off

// Paths and names.
inline constexpr Sentence badPath     {Kind::badRequest, "badPath", "The path is not valid: {}"};
inline constexpr Sentence badUserName {Kind::badRequest, "badUserName", "The user name is not valid: {}"};

// Sessions and accounts.
inline constexpr Sentence badToken     {Kind::loginRequired, "badToken", "The authentication token is not valid."};
inline constexpr Sentence accountDisabled {Kind::notAllowed, "accountDisabled", "Your account is disabled; ask whoever runs the service."};
inline constexpr Sentence sessionEnded {Kind::loginRequired, "sessionEnded", "Your session has ended. Log in again."};
inline constexpr Sentence tooManySessions {Kind::tooMany, "tooManySessions", "Your address has all the sessions it may have ({}). Log out of one, or try again when one has ended."};
inline constexpr Sentence unknownUser  {Kind::badRequest, "unknownUser", "There is no user named \"{}\"."};
inline constexpr Sentence userExists   {Kind::conflict, "userExists", "The user \"{}\" already exists."};
inline constexpr Sentence userOwnsData {Kind::conflict, "userOwnsData", "The user \"{}\" still owns files or folders; force the removal to delete them too."};

// Items.
inline constexpr Sentence notFound       {Kind::notFound, "notFound", "The path does not exist."};
inline constexpr Sentence readOnly       {Kind::notAllowed, "readOnly", "You may read this item but not change or share it."};
inline constexpr Sentence fileExists     {Kind::conflict, "fileExists", "The file already exists."};
inline constexpr Sentence folderExists   {Kind::conflict, "folderExists", "The folder already exists."};
inline constexpr Sentence isFolder       {Kind::conflict, "isFolder", "The path names a folder, not a file."};
inline constexpr Sentence isFile         {Kind::conflict, "isFile", "The path names a file, not a folder."};
inline constexpr Sentence parentMissing  {Kind::conflict, "parentMissing", "The folder \"{}\" does not exist."};
inline constexpr Sentence folderNotEmpty {Kind::conflict, "folderNotEmpty", "The folder is not empty."};
inline constexpr Sentence rootFolder     {Kind::conflict, "rootFolder", "The root folder cannot be deleted, moved or replaced."};
inline constexpr Sentence targetExists   {Kind::conflict, "targetExists", "The target of the move already exists."};
inline constexpr Sentence targetDiffers  {Kind::conflict, "targetDiffers", "A file can replace only a file, and a folder only an empty folder."};
inline constexpr Sentence intoItself     {Kind::conflict, "intoItself", "A folder cannot be moved into itself."};

// Uploads.
inline constexpr Sentence contentChanged{Kind::preconditionFailed, "contentChanged", "The file is not what the request takes it for; somebody has changed it since. Nothing was done."};
inline constexpr Sentence digestDiffers {Kind::badRequest, "digestDiffers", "What has arrived is not what its Content-Digest says; nothing was stored."};
inline constexpr Sentence sizeDiffers {Kind::badRequest, "sizeDiffers", "The upload does not have the announced length."};
inline constexpr Sentence storageFull {Kind::insufficientStorage, "storageFull", "The service has no room left to store this."};

inline constexpr Sentence quotaExceeded {Kind::insufficientStorage, "quotaExceeded", "You may store {}, and this would be more. Delete files or old versions, or ask for more."};

// Handles, grants, links, versions.
inline constexpr Sentence unknownHandle     {Kind::badRequest, "unknownHandle", "The session has no open file handle with this id."};
inline constexpr Sentence unknownPermission {Kind::badRequest, "unknownPermission", "There is no permission with this id."};
inline constexpr Sentence unknownLink       {Kind::badRequest, "unknownLink", "There is no public link with the id \"{}\"."};
inline constexpr Sentence linkOver          {Kind::badRequest, "linkOver", "A link can end only in the future; by the clock of the service it is {} now."};
inline constexpr Sentence unknownVersion    {Kind::badRequest, "unknownVersion", "The file has no such version."};
inline constexpr Sentence grantToOwner      {Kind::badRequest, "grantToOwner", "The item already belongs to this user."};
inline constexpr Sentence handleWithoutFile {Kind::conflict, "handleWithoutFile", "The file of this handle, or its folder, is no longer there."};

// Administration.
inline constexpr Sentence unknownSession {Kind::badRequest, "unknownSession", "There is no session \"{}\"; tarnd session list shows those there are."};

// Starting.
inline constexpr Sentence badDataDir          {Kind::conflict, "badDataDir", "The data directory {} cannot be used: {}"};
inline constexpr Sentence databaseUnreachable {Kind::internal, "databaseUnreachable", "The database cannot be opened. What it says follows."};
inline constexpr Sentence databaseRights      {Kind::internal, "databaseRights", "The database grants too little: its role needs SELECT, INSERT, UPDATE and DELETE on the tables of tarnd, and CREATE for the first start."};
inline constexpr Sentence badDatabaseUrl      {Kind::badRequest, "badDatabaseUrl", "The database cannot be used: {}"};
inline constexpr Sentence dataInUse           {Kind::conflict, "dataInUse", "Another tarnd is using the data directory {}; stop it first."};
inline constexpr Sentence noData              {Kind::badRequest, "noData", "There is no stored data in {}."};
inline constexpr Sentence databaseMissing     {Kind::conflict, "databaseMissing", "tarn.db is missing from {}; put it back together with tarn.db-wal, or restore a backup into another directory. If the store is on PostgreSQL, name that with --database."};
inline constexpr Sentence foreignData         {Kind::conflict, "foreignData", "The contents in {} belong to another database; name the database they were stored with, or another data directory."};
inline constexpr Sentence otherFolder         {Kind::conflict, "otherFolder", "The database has its contents in another folder than {}; is it mounted?"};
inline constexpr Sentence newerSchema         {Kind::conflict, "newerSchema", "The database was written by a newer tarnd; use that one."};
inline constexpr Sentence contentsMissing     {Kind::internal, "contentsMissing", "Contents of stored files are missing; bring them back from a backup, or let `tarnd fsck --repair` set aside what they belong to."};

// Copies.
inline constexpr Sentence copyIntoItself {Kind::conflict, "copyIntoItself", "{} lies inside of what is to be copied; choose another directory."};
inline constexpr Sentence targetTaken    {Kind::conflict, "targetTaken", "{} holds something else; choose an empty directory, or that of the last backup of this store."};
inline constexpr Sentence backupDamaged  {Kind::internal, "backupDamaged", "The database is damaged: nothing was copied, and an earlier backup is what it was. Restore that into another directory; tarnd fsck tells more."};
inline constexpr Sentence copyOfObjects  {Kind::badRequest, "copyOfObjects", "The contents are in an object store, which has its own means to copy them; docs/operating.md says in which order."};
inline constexpr Sentence moveTargetTaken {Kind::conflict, "moveTargetTaken", "{} holds something else already; name an empty one, or that of an earlier attempt to move this store."};
inline constexpr Sentence moveAlreadyUsed {Kind::conflict, "moveAlreadyUsed", "The store was moved before, and has changed there or here since; serve one of the two, and set the other aside."};

// Object stores.
inline constexpr Sentence badContentsUrl   {Kind::badRequest, "badContentsUrl", "The object store cannot be used: {}"};
inline constexpr Sentence foreignObjects   {Kind::conflict, "foreignObjects", "The object store {} belongs to another database, or holds something else; name the database it was used with, or another bucket or prefix."};
inline constexpr Sentence otherObjects     {Kind::conflict, "otherObjects", "The database has its contents elsewhere than in {}; `tarnd move` takes a store along."};
inline constexpr Sentence objectsGone      {Kind::unavailable, "objectsGone", "The service cannot reach the store of its contents and has changed nothing. Try again."};

// Faults.
inline constexpr Sentence commitUnknown {Kind::internal, "commitUnknown", "The change may have happened or not: the database did not confirm it. Look before you try again."};
inline constexpr Sentence databaseGone  {Kind::unavailable, "databaseGone", "The service cannot reach its database and has changed nothing. Try again."};
inline constexpr Sentence busy          {Kind::unavailable, "busy", "The service is busy and has changed nothing. Try again."};
inline constexpr Sentence internal      {Kind::internal, "internal", "The service failed to carry out the request."};

// clang-format on

} // namespace tarnd::sentences
