#include "cli/transfer/RemoteTree.h"

#include "cli/terminal/Text.h"
#include "cli/transfer/RemoteWalk.h"

#include <unordered_map>

namespace tarncli {

RemoteTree listRemoteTree(Connection& connection, Output& out, const RemotePath& root)
{
    RemoteTree tree;
    tree.root = std::make_unique<RemoteFolder>(RemoteFolder{root, root.name(), {}, {}});
    std::unordered_map<std::string, RemoteFolder*> unlisted{{root.path, tree.root.get()}};
    RemoteWalk walk(connection, out, [&](RemoteWalk::Folder& listed) {
        const auto found = unlisted.extract(listed.where.path);
        if (found.empty()) return; // a service that names a folder twice
        auto& folder = *found.mapped();
        folder.files = std::move(listed.listing->files);
        for (const auto& summary : listed.listing->folders) {
            const auto name = toUtf8(summary.name);
            const auto where = folder.where.child(name);
            folder.folders.push_back(std::make_unique<RemoteFolder>(RemoteFolder{where, name, {}, {}}));
            unlisted[where.path] = folder.folders.back().get();
        }
    });
    walk.add(root);
    tree.report = walk.run();
    return tree;
}

} // namespace tarncli
