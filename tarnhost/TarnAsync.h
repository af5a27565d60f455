#pragma once

#include "tarn/foundation/Future.h"
#include "tarnhost/Tarn.h"

namespace connector::host {

/// The functions of Tarn, without waiting: the future is settled on a delivery thread, with the result or with what
/// Tarn throws, which includes what keeps the operation from starting. Once the host goes, all that are under way fail.
class TARN_API TarnAsync {
public:
    explicit TarnAsync(std::shared_ptr<TarnHost> tarnHost) : ownHost(std::move(tarnHost)) {}

    Future<void> logIn(const Tarn::Login& login);
    Future<void> logOut();
    Future<void> ping();

    Future<Version> put(const Place& target, const std::string& localFile,
                        IfThere ifThere = IfThere::replace);
    Future<void> get(const Place& source, const std::string& localFile, const std::string& versionId = "");
    /// Copies `content` before it returns.
    Future<Version> write(const Place& target, std::string_view content, IfThere ifThere = IfThere::replace);
    Future<std::string> read(const Place& source, const std::string& versionId = "");
    Future<void> remove(const Place& file);
    Future<void> move(const Place& from, const Place& to, bool overwrite = false);
    Future<Entry> stat(const Place& item);

    Future<void> makeFolder(const Place& folder);
    Future<std::vector<Entry>> list(const Place& folder);
    Future<void> removeFolder(const Place& folder, bool recursive = false);

    Future<std::vector<SharedEntry>> shared();
    Future<std::string> link(const Place& item);
    Future<std::string> linkUntil(const Place& item, std::int64_t expires);
    Future<std::vector<Link>> links();
    Future<void> revokeLink(const std::string& linkId);
    Future<std::string> grant(const Place& item, const std::string& user, bool pending = false);
    Future<void> revoke(const std::string& grantId);
    Future<std::vector<Grant>> grants(const Place& item = "");

    Future<std::vector<Version>> versions(const std::string& path);
    Future<Version> restore(const std::string& path, std::int64_t versionLabel, bool asNewVersion = false);

    TarnHost& host() { return *ownHost; }

private:
    std::shared_ptr<TarnHost> ownHost;
};

} // namespace connector::host
