#pragma once

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/ContentWriter.h"
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
            // A start elsewhere may have taken this process for dead, and the content for left behind.
            if (!engine.contents.open(content.id))
                throw sentences::internal.because("content " + content.id + " is gone before its row came");
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
