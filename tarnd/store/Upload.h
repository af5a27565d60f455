#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Contents.h"
#include "tarnd/store/DiskRoom.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"
#include "tarnd/store/PutOptions.h"
#include "tarnd/store/Quota.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tarnd {

/// Refuses what Upload::commit() would refuse in the end, as far as that is known beforehand.
/// @return what the quota leaves @throws as Catalog::put
QuotaRoom requirePut(Engine& engine, const Caller& caller, const Location& location,
                     const PutOptions& options);

/// One file content on its way in. Nothing of it is visible before commit() returns, and an upload that is
/// destroyed uncommitted leaves nothing behind. One thread at a time.
class Upload {
public:
    /// Use Catalog::put, which checks first.
    Upload(Engine engine, Caller caller, Location location, PutOptions options,
           std::optional<std::uint64_t> expectedSize, DiskRoom::Claim room, QuotaRoom quota);

    /// Appends bytes; the session does not count as idle meanwhile. @throws ServiceError badRequest beyond
    /// the announced length, insufficientStorage, internal
    void write(const void* data, std::size_t size);

    /// As PutOptions::digest, when that is known at the end only. @throws ServiceError badRequest when it is not the one
    /// known before
    void require(std::string digest);

    /// Makes the content durable, then the file: bytes and directory reach the disk first, then one
    /// transaction checks session, path, mode and permission again and enters the version. Once it returns
    /// the file survives a crash. Call at most once.
    /// @throws ServiceError as Catalog::put, badRequest when bytes are missing or others than announced; then nothing has changed
    VersionStamp commit();

    /// Of the bytes stored, 64 hex digits. @pre commit() has returned
    const std::string& sha256() const { return writer->sha256(); }

    /// Of the content stored, as OpenContent::tag. @pre likewise
    const std::string& tag() const { return ownTag; }

private:
    void requireQuota(std::uint64_t bytes);

    Engine engine;
    Caller caller;
    Location location;
    PutOptions options;
    std::optional<std::uint64_t> expectedSize;
    DiskRoom::Claim room;
    QuotaRoom quota;
    std::unique_ptr<ContentWriter> writer;
    std::string ownTag;
    std::int64_t renewed; ///< when the session was last kept alive
};

} // namespace tarnd
