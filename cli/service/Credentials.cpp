#include "cli/service/Credentials.h"

#include "cli/machine/PrivateFile.h"
#include "cli/machine/UserFolders.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <map>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

constexpr const char* lastUserFile = "last-user.json";

/// The members of a file, all of them texts; nothing when there is no such file.
std::optional<std::map<std::string, std::string>> readTexts(const std::filesystem::path& file)
{
    const auto text = readPrivateFile(file);
    if (!text) return {};
    std::map<std::string, std::string> texts;
    const auto json = nlohmann::json::parse(*text, nullptr, false);
    if (json.is_object())
        for (const auto& [name, value] : json.items())
            if (value.is_string()) texts[name] = value.get<std::string>();
    return texts;
}

void writeTexts(const std::filesystem::path& file, const nlohmann::json& texts)
{
    writePrivateFile(file, texts.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

} // namespace

CredentialStore::CredentialStore(const std::string& endpoint)
    : service(endpoint.empty() ? "local" : endpoint)
    , folder(folders::state() / "sessions" / privateFileName(service))
{
}

std::filesystem::path CredentialStore::file(const std::string& user) const
{
    return folder / (privateFileName(user) + ".json");
}

std::string CredentialStore::lastUser() const
{
    auto texts = readTexts(folder / lastUserFile);
    return texts ? (*texts)["user"] : "";
}

void CredentialStore::setLastUser(const std::string& user) const
{
    writeTexts(folder / lastUserFile, {{"service", service}, {"user", user}});
}

std::optional<Credentials> CredentialStore::load(const std::string& user) const
{
    auto texts = readTexts(file(user));
    if (!texts) return {};
    // The file's name holds no more than a hash of both.
    if ((*texts)["service"] != service || (*texts)["user"] != user)
        throw Failure(ExitCode::failure,
                      escaped(file(user).string()) + " is damaged; delete it and log in again.");
    return Credentials{user, (*texts)["session"], (*texts)["token"]};
}

void CredentialStore::save(const Credentials& credentials) const
{
    nlohmann::json texts{
        {"service", service}, {"user", credentials.user}, {"session", credentials.sessionId}};
    if (!credentials.token.empty()) texts["token"] = credentials.token;
    writeTexts(file(credentials.user), texts);
}

bool CredentialStore::remove(const std::string& user) const
{
    // The name first: interrupted in between, this must not leave the name of a user without credentials.
    std::error_code error;
    if (lastUser() == user) std::filesystem::remove(folder / lastUserFile, error);
    const bool removed = !error && std::filesystem::remove(file(user), error);
    if (error)
        throw Failure(ExitCode::failure,
                      "Could not delete " + escaped(file(user).string()) + ": " + error.message() + ".");
    return removed;
}

} // namespace tarncli
