#pragma once

#include "tarnd/store/ContentRemover.h"
#include "tarnd/store/Contents.h"
#include "tarnd/store/ObjectStore.h"

namespace tarnd {

/// Contents as objects of an S3-compatible store, their ids the keys; beside them the object "store-id" names the
/// database they belong to.
///
/// There are no temporary names that tell what is being written: what no row names is left alone for the grace of
/// the address, and is removed under the lock under which rows are entered.
class ObjectContents final : public Contents {
public:
    /// Does not contact the store. @throws ServiceError badRequest without a key
    ObjectContents(ObjectStoreAddress address, WriteListener listener);

    void join(Database& database, const DataDirectory& directory) override;
    ContentBytes open(const std::string& id) const override;
    std::unique_ptr<ContentWriter> write(std::optional<std::uint64_t> size) override;

    /// The store's room is not known.
    DiskRoom::Claim claimRoom(std::uint64_t) override { return {}; }

    void drop(const std::vector<std::string>& ids) override { remover.add(ids); }

    void dropNow(const std::vector<std::string>& ids) noexcept override;

    void finishDrops() override { remover.finish(); }

    std::string whyNotWritable() override;
    std::vector<std::string> ids(const std::string& beginning = {}) const override;
    bool has(const std::string& id) const override;
    std::vector<std::string> strangers() const override;
    bool isBeingWritten(const std::string& id) const override;
    std::size_t dropAbandonedUploads() override;

    std::optional<std::chrono::seconds> sweepInterval() const override { return objects.address().grace; }

    bool isRemote() const override { return true; }

    void interruptWaits() override { objects.interruptWaits(); }

    /// Makes an empty store that of the database with this id. False when it is another's, or holds something else.
    bool claim(const std::string& storeId);

    /// A writer of a content that had its id elsewhere.
    std::unique_ptr<ContentWriter> writeAs(const std::string& id, std::optional<std::uint64_t> size);

    ObjectStore& store() { return objects; }

private:
    mutable ObjectStore objects;
    ContentRemover remover;
};

} // namespace tarnd
