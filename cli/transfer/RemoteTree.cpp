#include "cli/transfer/RemoteTree.h"

#include "cli/remote/Requests.h"

namespace tarncli {

namespace {

using namespace connector::tarn;
using connector::Future;

constexpr int deepest = 256; ///< folders within folders; a service that goes on for ever is cut off there

class Listing {
public:
    Listing(Connection& openConnection, Output& out)
        : connection(openConnection), transfers(openConnection, out)
    {
    }

    RemoteTree list(const RemotePath& where)
    {
        RemoteTree tree;
        tree.root = std::make_unique<RemoteFolder>(RemoteFolder{where, where.name(), {}, {}});
        add(*tree.root, 0);
        tree.report = transfers.run();
        return tree;
    }

private:
    using Reply = std::unique_ptr<FolderListResponse>;

    void add(RemoteFolder& folder, int depth)
    {
        auto reply = std::make_shared<Reply>(); // outlives this when the reply comes after all was given up
        Transfer transfer;
        transfer.what = folder.where.quoted();
        transfer.start = [this, reply, where = folder.where, name = folder.name, depth] {
            requireUsable(name, where, depth); // here, so that only this folder fails
            return requestListing(connection, where).then([reply](Future<Reply>&& listed) {
                *reply = listed.get();
                return true;
            });
        };
        transfer.succeeded = [this, reply, &folder, depth] { take(folder, **reply, depth); };
        transfers.add(std::move(transfer));
    }

    static void requireUsable(const std::string& name, const RemotePath& where, int depth)
    {
        const bool isNoName = !where.isRoot() && (name.empty() || name == "." || name == "..");
        if (isNoName || name.find('/') != std::string::npos || name.find('\0') != std::string::npos)
            throw Failure(ExitCode::failure, "The service returned a folder name that is not valid.");
        if (const auto why = whyNotAddressable(name); !why.empty()) throw usageError(why);
        if (depth > deepest) throw Failure(ExitCode::failure, "The folders are nested too deeply.");
    }

    void take(RemoteFolder& folder, FolderListResponse& reply, int depth)
    {
        folder.files = std::move(reply.files);
        for (const auto& summary : reply.folders) {
            const auto name = toUtf8(summary.name);
            folder.folders.push_back(
                std::make_unique<RemoteFolder>(RemoteFolder{folder.where.child(name), name, {}, {}}));
            add(*folder.folders.back(), depth + 1);
        }
    }

    Connection& connection;
    Transfers transfers;
};

} // namespace

RemoteTree listRemoteTree(Connection& connection, Output& out, const RemotePath& root)
{
    return Listing(connection, out).list(root);
}

} // namespace tarncli
