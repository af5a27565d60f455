#include "tarnd/store/Upload.h"

#include "tarnd/store/ContentEntry.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/Sessions.h"

namespace tarnd {

namespace {

constexpr std::int64_t renewInterval = 60 * 1000; // milliseconds

} // namespace

QuotaRoom requirePut(Engine& engine, const Caller& caller, const Location& location,
                     const PutOptions& options)
{
    return engine.database.read(Tree::statementsFor(location), [&](Transaction& transaction) {
        Tree tree(transaction, caller);
        const auto slot = slotForPut(tree, location, options.mode);
        options.condition.require(slot.existing);
        const bool replaces = slot.existing && !options.createNewVersion;
        return quotaRoomOf(transaction, caller, replaces ? slot.existing->size : 0);
    });
}

Upload::Upload(Engine engine, Caller caller, Location location, PutOptions options,
               std::optional<std::uint64_t> expectedSize, DiskRoom::Claim room, QuotaRoom quota)
    : engine(std::move(engine))
    , caller(std::move(caller))
    , location(std::move(location))
    , options(options)
    , expectedSize(expectedSize)
    , room(std::move(room))
    , quota(quota)
    , writer(this->engine.contents.write(expectedSize))
    , renewed(this->engine.clock())
{
}

void Upload::write(const void* data, std::size_t size)
{
    if (expectedSize && size > *expectedSize - writer->size()) throw sentences::sizeDiffers();
    requireQuota(writer->size() + size);
    room.extendTo(size);
    writer->write(data, size);
    room.use(size);
    if (const auto now = engine.clock(); now - renewed >= renewInterval) {
        renewed = now;
        renewSession(engine, caller);
    }
}

/// What was left when the upload began may be more by now.
void Upload::requireQuota(std::uint64_t bytes)
{
    if (quota.has(bytes)) return;
    quota = requirePut(engine, caller, location, options);
    quota.require(bytes);
}

void Upload::require(std::string digest)
{
    if (digest.empty()) return;
    if (!options.digest.empty() && options.digest != digest) throw sentences::digestDiffers();
    options.digest = std::move(digest);
}

VersionStamp Upload::commit()
{
    if (expectedSize && writer->size() != *expectedSize) throw sentences::sizeDiffers();
    caller.isAssumed = true; // the session may have ended while the content came
    return enterContent(engine, *writer, WriteScope{caller.userId},
                        [&](Transaction& transaction, const StoredContent& content, auto& dropped) {
                            if (!options.digest.empty() &&
                                !base64OfHex(content.sha256).starts_with(options.digest + "="))
                                throw sentences::digestDiffers();
                            Tree tree(transaction, caller);
                            const auto slot = slotForPut(tree, location, options.mode);
                            options.condition.require(slot.existing);
                            const bool isInPlace = slot.existing && !options.createNewVersion;
                            const auto stamp = writeFile(transaction, caller, slot, content,
                                                         options.createNewVersion, engine.clock(), dropped);
                            ownTag = contentTag(stamp.id, isInPlace ? 1 : 0, content.id);
                            return stamp;
                        });
}

} // namespace tarnd
