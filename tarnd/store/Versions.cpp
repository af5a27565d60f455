#include "tarnd/store/Versions.h"

#include "tarnd/store/FileVersions.h"

namespace tarnd {

VersionHistory Versions::list(const Caller& caller, const Location& location)
{
    return engine.database.read([&](Transaction& transaction) {
        const auto file = requireFile(Tree(transaction, caller).readable(location));
        VersionHistory history{file.name, {}};
        for (const auto& row : versionsOf(transaction, file.id))
            history.versions.push_back({row.stamp, row.created, row.content.size, row.content.sha256,
                                        row.stamp.id == file.version.id});
        return history;
    });
}

VersionStamp Versions::restore(const Caller& caller, const Location& location, const VersionChoice& version,
                               bool createNewVersion)
{
    return engine.database.write(WriteScope{caller.userId}, [&](Transaction& transaction) {
        const auto file = requireFile(Tree(transaction, caller).owned(location));
        // Nothing chosen means the current version everywhere else; restoring that would silently do nothing.
        if (version.isCurrent()) throw sentences::unknownVersion();
        const auto old = chosenVersion(transaction, file, version);
        if (createNewVersion) return addVersion(transaction, caller, file, old.content, engine.clock());
        if (old.stamp.id != file.version.id) setCurrent(transaction, file.id, old.stamp.id, engine.clock());
        return old.stamp;
    });
}

} // namespace tarnd
