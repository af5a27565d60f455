#include "tarnhost/Tarn.h"

#include "tarnhost/TarnAsync.h"
#include "tarnhost/TarnHost.h"

#include <utility>

namespace connector::host {

Tarn::Tarn(const std::string& endpoint, const Login& login)
    : Tarn(std::make_shared<TarnHost>(TarnHost::Options{.endpoint = endpoint}))
{
    logIn(login);
}

Tarn::Tarn(std::shared_ptr<TarnHost> host) : later(std::make_unique<TarnAsync>(std::move(host))) {}

Tarn::~Tarn() = default;
Tarn::Tarn(Tarn&&) noexcept = default;
Tarn& Tarn::operator=(Tarn&&) noexcept = default;

void Tarn::logIn(const Login& login)
{
    later->logIn(login).get();
}

void Tarn::logOut()
{
    later->logOut().get();
}

void Tarn::ping()
{
    later->ping().get();
}

Version Tarn::put(const Place& target, const std::string& localFile, IfThere ifThere)
{
    return later->put(target, localFile, ifThere).get();
}

void Tarn::get(const Place& source, const std::string& localFile, const std::string& versionId)
{
    later->get(source, localFile, versionId).get();
}

Version Tarn::write(const Place& target, std::string_view content, IfThere ifThere)
{
    return later->write(target, content, ifThere).get();
}

std::string Tarn::read(const Place& source, const std::string& versionId)
{
    return later->read(source, versionId).get();
}

void Tarn::remove(const Place& file)
{
    later->remove(file).get();
}

void Tarn::move(const Place& from, const Place& to, bool overwrite)
{
    later->move(from, to, overwrite).get();
}

Entry Tarn::stat(const Place& item)
{
    return later->stat(item).get();
}

void Tarn::makeFolder(const Place& folder)
{
    later->makeFolder(folder).get();
}

std::vector<Entry> Tarn::list(const Place& folder)
{
    return later->list(folder).get();
}

void Tarn::removeFolder(const Place& folder, bool recursive)
{
    later->removeFolder(folder, recursive).get();
}

std::vector<SharedEntry> Tarn::shared()
{
    return later->shared().get();
}

std::string Tarn::link(const Place& item)
{
    return later->link(item).get();
}

std::string Tarn::linkUntil(const Place& item, std::int64_t expires)
{
    return later->linkUntil(item, expires).get();
}

std::vector<Link> Tarn::links()
{
    return later->links().get();
}

void Tarn::revokeLink(const std::string& linkId)
{
    later->revokeLink(linkId).get();
}

std::string Tarn::grant(const Place& item, const std::string& user, bool pending)
{
    return later->grant(item, user, pending).get();
}

void Tarn::revoke(const std::string& grantId)
{
    later->revoke(grantId).get();
}

std::vector<Grant> Tarn::grants(const Place& item)
{
    return later->grants(item).get();
}

std::vector<Version> Tarn::versions(const std::string& path)
{
    return later->versions(path).get();
}

Version Tarn::restore(const std::string& path, std::int64_t versionLabel, bool asNewVersion)
{
    return later->restore(path, versionLabel, asNewVersion).get();
}

TarnAsync& Tarn::async()
{
    return *later;
}

TarnHost& Tarn::host()
{
    return later->host();
}

} // namespace connector::host
