#include "cli/service/Credentials.h"

#include "cli/machine/PrivateFile.h"
#include "cli/machine/UserFolders.h"
#include "cli/terminal/Failure.h"

#include <cctype>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

/// FNV-1a: tells apart the names that look alike once their special characters are gone.
std::string hashOf(const std::string& text)
{
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    char buffer[20];
    std::snprintf(buffer, sizeof buffer, "%016jx", std::uintmax_t{hash});
    return buffer;
}

std::string fileName(const std::string& key)
{
    std::string readable;
    for (const char c : key.substr(0, 80))
        readable += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '-';
    return readable + "-" + hashOf(key) + ".json";
}

} // namespace

CredentialStore::CredentialStore(const Service& service)
    : key((service.isLocal() ? "local" : service.endpoint) + " " + service.profile)
    , path(folders::state() / "sessions" / fileName(key))
{
}

std::optional<Credentials> CredentialStore::load() const
{
    const auto text = readPrivateFile(path);
    if (!text) return {};
    const auto json = nlohmann::json::parse(*text, nullptr, false);
    if (!json.is_object() || json.value("service", "") != key)
        throw Failure(ExitCode::failure, path.string() + " is damaged; delete it and log in again.");
    return Credentials{json.value("user", ""), json.value("session", ""), json.value("token", "")};
}

void CredentialStore::save(const Credentials& credentials) const
{
    nlohmann::json json{{"service", key}, {"user", credentials.user}, {"session", credentials.sessionId}};
    if (!credentials.token.empty()) json["token"] = credentials.token;
    writePrivateFile(path, json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

bool CredentialStore::remove() const
{
    std::error_code error;
    const bool removed = std::filesystem::remove(path, error);
    if (error) throw Failure(ExitCode::failure, "Could not delete " + path.string() + ": " + error.message());
    return removed;
}

} // namespace tarncli
