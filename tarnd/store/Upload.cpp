#include "tarnd/store/Upload.h"

#include "tarnd/store/ContentEntry.h"

namespace tarnd {

namespace {

constexpr std::int64_t renewInterval = 60 * 1000; // milliseconds

} // namespace

Upload::Upload(Engine engine, Caller caller, Location location, PutOptions options,
               std::uint64_t expectedSize)
    : engine_(std::move(engine))
    , caller_(std::move(caller))
    , location_(std::move(location))
    , options_(options)
    , expectedSize_(expectedSize)
    , writer_(engine_.contents)
    , renewed_(engine_.clock())
{
}

void Upload::write(const void* data, std::size_t size)
{
    if (size > expectedSize_ - writer_.size()) throw sentences::sizeDiffers();
    writer_.write(data, size);
    if (const auto now = engine_.clock(); now - renewed_ >= renewInterval) {
        renewed_ = now;
        renewSession(engine_, caller_);
    }
}

VersionStamp Upload::commit()
{
    if (writer_.size() != expectedSize_) throw sentences::sizeDiffers();
    return enterContent(
        engine_, writer_, [&](Transaction& transaction, const StoredContent& content, auto& dropped) {
            requireSession(transaction, caller_);
            Tree tree(transaction, caller_);
            const auto slot = slotForPut(tree, location_, options_.mode);
            return writeFile(transaction, slot, content, options_.createNewVersion, engine_.clock(), dropped);
        });
}

} // namespace tarnd
