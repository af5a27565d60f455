#pragma once

#include "tarnd/store/Contents.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/FileVersions.h"

#include <string>
#include <vector>

namespace tarnd {

/// Publishes the written content and runs `enter(transaction, content, dropped)`, which makes a version name
/// it, as one write in that scope. Afterwards the content is kept and the dropped ones are removed; if `enter` or the
/// commit fails the content goes, unless it cannot be known whether the commit took place.
template <class Enter>
VersionStamp enterContent(Engine& engine, ContentWriter& writer, const WriteScope& scope, Enter&& enter)
{
    writer.publish();
    const StoredContent content{writer.id(), static_cast<std::int64_t>(writer.size()), writer.sha256()};
    std::vector<std::string> dropped;
    VersionStamp stamp;
    try {
        stamp = engine.database.write(scope, [&](Transaction& transaction) {
            writer.requireThere();
            auto entered = enter(transaction, content, dropped);
            engine.contents.notify(WriteStep::transactionOpen);
            return entered;
        });
    } catch (const CommitUnknown&) {
        writer.abandon();
        throw;
    } catch (...) {
        writer.discard();
        throw;
    }
    engine.contents.notify(WriteStep::committed);
    writer.keep();
    engine.contents.drop(dropped);
    engine.contents.notify(WriteStep::finished);
    return stamp;
}

} // namespace tarnd
