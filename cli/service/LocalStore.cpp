#include "cli/service/LocalStore.h"

#include "cli/machine/Environment.h"
#include "cli/machine/PrivateFile.h"
#include "cli/machine/Process.h"
#include "cli/machine/UserFolders.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Interrupts.h"
#include "cli/terminal/Text.h"

#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

namespace tarncli {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr auto startLimit = 30s;
constexpr auto stopLimit = 15s;
constexpr std::uintmax_t logLimit = 1 << 20; // bytes; a longer log starts anew with the next start

bool answers(const std::string& url)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto colon = url.rfind(':');
    if (colon == std::string::npos) return false;
    address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(url.c_str() + colon + 1, nullptr, 10)));
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

std::string lastLine(const fs::path& log)
{
    std::ifstream file(log);
    std::string last;
    for (std::string line; std::getline(file, line);)
        if (!line.empty()) last = line;
    return last;
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

} // namespace

struct LocalStore::Record {
    std::string user;
    std::string token;
    std::string url; ///< empty: it was being started when this was written
    pid_t pid = 0;
    std::string startTime;

    bool hasProcess() const { return pid > 0 && !startTime.empty() && process::startTime(pid) == startTime; }

    bool isRunning() const { return !url.empty() && hasProcess() && answers(url); }

    Running running() const { return {url, pid, user, token}; }
};

LocalStore::LocalStore() : data(folders::data()) {}

std::optional<LocalStore::Record> LocalStore::readRecord() const
{
    const auto text = readPrivateFile(data / "local.json");
    if (!text) return {};
    const auto json = nlohmann::json::parse(*text, nullptr, false);
    if (!json.is_object()) return Record{};
    return Record{json.value("user", ""), json.value("token", ""), json.value("url", ""),
                  json.value("pid", 0), json.value("startTime", "")};
}

void LocalStore::writeRecord(const Record& record) const
{
    const nlohmann::json json{{"user", record.user},
                              {"token", record.token},
                              {"url", record.url},
                              {"pid", record.pid},
                              {"startTime", record.startTime}};
    writePrivateFile(data / "local.json", json.dump(2) + "\n");
}

std::optional<LocalStore::Running> LocalStore::running() const
{
    const auto record = readRecord();
    if (!record || !record->isRunning()) return {};
    return record->running();
}

LocalStore::Running LocalStore::ensureRunning(const std::function<void(const std::string&)>& told)
{
    if (auto found = running()) return *found;
    const auto lock = lockFile(data / "local.lock");
    auto record = readRecord().value_or(Record{});
    if (record.isRunning()) return record.running();
    told("Starting the local store in " + data.string() + "; `tarn local stop` ends it.");
    stopProcess(record);
    if (record.token.empty()) makeUser(record);
    start(record);
    return record.running();
}

void LocalStore::makeUser(Record& record) const
{
    const auto program = tarnd();
    const auto log = data / "tarnd.log";
    record.user = loginName();
    auto made = process::run({program, "user", "add", record.user, "--data", data}, log);
    // The token of a user from before is not known any more: it gets a new one.
    if (made.exitCode != 0)
        made = process::run({program, "user", "rotate", record.user, "--data", data}, log);
    if (made.exitCode != 0)
        throw Failure(ExitCode::failure, "The local store could not be set up: " + escaped(lastLine(log)));
    record.token = made.out.substr(0, made.out.find('\n'));
    writeRecord(record);
}

void LocalStore::start(Record& record) const
{
    const auto log = data / "tarnd.log";
    std::error_code ignored;
    if (fs::file_size(log, ignored) > logLimit && !ignored) fs::resize_file(log, 0, ignored);
    const auto started =
        process::startDetached({tarnd(), "serve", "--data", data, "--listen", "127.0.0.1:0"}, log);
    const InterruptGuard guard([pid = started.pid] { process::end(pid, 1s); });
    record.pid = started.pid;
    record.startTime = process::startTime(started.pid);
    writeRecord(record); // so that whoever comes after a crash finds the process
    const auto json = nlohmann::json::parse(process::readLine(started.out, startLimit), nullptr, false);
    if (json.is_object()) record.url = json.value("url", "");
    if (record.url.empty()) {
        stopProcess(record);
        throw Failure(ExitCode::failure, "The local store did not start: " + escaped(lastLine(log)) +
                                             " (see " + escaped(log.string()) + ")");
    }
    writeRecord(record);
}

void LocalStore::stopProcess(Record& record) const
{
    if (record.hasProcess()) process::end(record.pid, stopLimit);
    record.pid = 0;
    record.url.clear();
    record.startTime.clear();
}

bool LocalStore::stop()
{
    if (!fs::exists(data / "local.json")) return false;
    const auto lock = lockFile(data / "local.lock");
    auto record = readRecord();
    if (!record || !record->hasProcess()) return false;
    stopProcess(*record);
    writeRecord(*record);
    return true;
}

} // namespace tarncli
