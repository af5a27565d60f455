#include "cli/service/LocalStore.h"

#include "cli/machine/Environment.h"
#include "cli/machine/FileLock.h"
#include "cli/machine/PrivateFile.h"
#include "cli/machine/Process.h"
#include "cli/machine/UserFolders.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <random>
#include <sys/socket.h>
#include <thread>

namespace tarncli {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr auto startLimit = 30s;
constexpr auto stopLimit = 15s;
constexpr auto answerLimit = 2s;
constexpr auto lookInterval = 10ms;
constexpr std::uintmax_t logLimit = 1 << 20; // bytes; a longer log starts anew with the next start

constexpr std::string_view urlStart = "http://127.0.0.1:";
constexpr std::string_view question =
    "GET /service/v1/ping HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

/// A free port below those that the kernel gives to connections, one of which might have it when the store starts the
/// next time.
std::string freeAddress()
{
    std::random_device random;
    std::uniform_int_distribution<std::uint16_t> ports(10'000, 32'767);
    for (int tries = 0; tries < 20; ++tries) {
        const auto port = ports(random);
        const auto address = loopback(port);
        const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            return "127.0.0.1:" + std::to_string(port);
    }
    return "127.0.0.1:0";
}

/// Whether a service answers there, whatever it says. That a connection is accepted does not tell it: the kernel goes
/// on accepting for a process that is being killed.
bool answersAt(const std::string& url)
{
    if (!url.starts_with(urlStart)) return false;
    const auto address =
        loopback(static_cast<std::uint16_t>(std::strtoul(&url[urlStart.size()], nullptr, 10)));
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::send(socket.get(), question.data(), question.size(), MSG_NOSIGNAL) < 0)
        return false;
    pollfd waiting{socket.get(), POLLIN, 0};
    char first = 0;
    return ::poll(&waiting, 1, std::chrono::milliseconds(answerLimit).count()) > 0 &&
           ::recv(socket.get(), &first, 1, 0) == 1;
}

/// Why tarnd ended.
std::string lastWords(const fs::path& log)
{
    std::ifstream file(log);
    std::string last;
    for (std::string line; std::getline(file, line);)
        if (!line.empty()) last = line;
    if (last.empty())
        return "tarnd could not even write why; is the disk of " + escaped(log.string()) + " full?";
    return escaped(last);
}

fs::path tarnd()
{
    const auto program = process::find("tarnd");
    if (program.empty())
        throw Failure(ExitCode::failure,
                      "The local store needs tarnd, which is neither beside tarn nor on PATH. "
                      "Install it, or name a service with --endpoint.");
    return program;
}

nlohmann::json readJson(const fs::path& file)
{
    const auto text = readPrivateFile(file);
    auto json = nlohmann::json::parse(text.value_or(""), nullptr, false);
    return json.is_object() ? json : nlohmann::json::object();
}

} // namespace

struct LocalStore::Account {
    std::string user;
    std::string token;
};

LocalStore::LocalStore() : data(folders::data()) {}

std::optional<LocalStore::Account> LocalStore::readAccount() const
{
    const auto json = readJson(data / "local.json");
    Account account{json.value("user", ""), json.value("token", "")};
    if (account.token.empty()) return {};
    return account;
}

std::optional<LocalStore::Server> LocalStore::server() const
{
    const auto owner = lockOwner(data / "lock");
    if (!owner) return {};
    Server found{*owner, "", false};
    // Another id is that of a process from before: this one is still starting.
    if (const auto told = readJson(data / "lock"); told.value("pid", 0) == *owner)
        found.url = told.value("url", "");
    found.answers = answersAt(found.url);
    return found;
}

LocalStore::Access LocalStore::ensureRunning(const std::function<void(const std::string&)>& told)
{
    // Without the lock first: nearly every command finds a server that runs.
    const auto account = readAccount();
    auto found = server();
    if (account && found && found->answers) return {found->url, account->user, account->token};

    const auto lock = lockFile(data / "local.lock");
    const auto [user, token] = account ? *account : makeAccount();
    const auto deadline = std::chrono::steady_clock::now() + startLimit;
    while (found = server(), !found || !found->answers) {
        if (std::chrono::steady_clock::now() > deadline)
            throw Failure(ExitCode::unreachable,
                          "The local store does not answer, but its data is in use by process " +
                              std::to_string(found->pid) + "; `tarn local stop` ends it.");
        if (!found) {
            told("Starting the local store in " + escaped(data.string()) + "; `tarn local stop` ends it.");
            start(told);
        }
        std::this_thread::sleep_for(lookInterval);
    }
    return {found->url, user, token};
}

LocalStore::Account LocalStore::makeAccount() const
{
    if (auto made = readAccount()) return *made; // by who had the lock before
    const auto program = tarnd();
    const auto user = loginName();
    // The token of a user from before is not known any more: it gets a new one. What keeps the store from being begun
    // only the second tells.
    auto added = process::run({program, "user", "rotate", user, "--data", data}, log());
    if (added.exitCode != 0) added = process::run({program, "user", "add", user, "--data", data}, log());
    if (added.exitCode != 0)
        throw Failure(ExitCode::failure, "The local store could not be set up: " + lastWords(log()));
    const auto token = added.out.substr(0, added.out.find('\n'));
    const nlohmann::json json{{"user", user}, {"token", token}};
    writePrivateFile(data / "local.json", json.dump(2) + "\n");
    return {user, token};
}

std::optional<std::string> LocalStore::lastAddress() const
{
    const auto url = readJson(data / "lock").value("url", "");
    if (!url.starts_with(urlStart)) return {};
    return url.substr(urlStart.find("127"));
}

/// At the port of the last time, so that links and whoever noted the address still find it.
void LocalStore::start(const std::function<void(const std::string&)>& told) const
{
    std::error_code ignored;
    if (fs::file_size(log(), ignored) > logLimit && !ignored) fs::resize_file(log(), 0, ignored);
    const auto last = lastAddress();
    if (last && startAt(*last)) return;
    const bool started = startAt(freeAddress());
    if (!started)
        throw Failure(ExitCode::failure, "The local store did not start: " + lastWords(log()) + " (see " +
                                             escaped(log().string()) + ")");
    if (last)
        told("The local store could not have " + escaped(*last) +
             " again and has taken another port: links made before do not open.");
}

/// Returns when the new process answers, or when another one holds the data. Nothing is undone when this program is
/// interrupted meanwhile: the process goes on starting, and whoever needs it next finds it by its lock.
bool LocalStore::startAt(const std::string& address) const
{
    const auto started =
        process::startDetached({tarnd(), "serve", "--data", data, "--listen", address}, log());
    if (!process::readLine(started.out, startLimit).empty()) return true;
    process::end(started.pid, stopLimit);
    return lockOwner(data / "lock").has_value(); // one that an interrupted command had started was faster
}

bool LocalStore::stop()
{
    if (!fs::exists(data)) return false;
    const auto lock = lockFile(data / "local.lock");
    const auto owner = lockOwner(data / "lock");
    if (!owner) return false;
    // The kernel names no process of this machine: there is none that could be told to end.
    if (*owner <= 0)
        throw Failure(ExitCode::failure,
                      "The local store in " + escaped(data.string()) +
                          " is in use on another machine or in another container; stop it there.");
    process::end(*owner, stopLimit);
    return true;
}

} // namespace tarncli
