#include "tarnd/Status.h"

#include "tarnd/store/Sentences.h"
#include "tarnd/store/Store.h"
#include "tarnd/store/UniqueFd.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>

namespace tarnd {

namespace {

constexpr int notReady = 1;
constexpr int notRunning = 3; // as init scripts say it

struct Server {
    pid_t pid = 0;
    std::string url; ///< empty: it has not told yet, or does something else than serve
};

/// Who holds the lock now; what the file says of another process is of one that has ended.
std::optional<Server> serverOf(const std::filesystem::path& dataDir)
{
    const auto lockFile = dataDir / "lock";
    const UniqueFd file(::open(lockFile.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file && errno == ENOENT) return {};

    struct flock whole {};

    whole.l_type = F_RDLCK;
    if (!file || ::fcntl(file.get(), F_GETLK, &whole) != 0)
        throw sentences::badDataDir(dataDir, std::generic_category().message(errno));
    if (whole.l_type == F_UNLCK) return {};
    std::ifstream in(lockFile);
    const auto told = nlohmann::json::parse(in, nullptr, false);
    if (told.is_object() && told.value("pid", 0) == whole.l_pid)
        return Server{whole.l_pid, told.value("url", "")};
    return Server{whole.l_pid, {}};
}

struct Answer {
    std::string head, body;

    bool isOk() const { return head.find(" 200 ") != std::string::npos; }
};

/// One request to the service of this machine whose address stood in a file that only it can write. So its
/// certificate, which is made out to another name than this address, is not looked at.
Answer get(const std::string& url, const std::string& path)
{
    const bool encrypted = url.starts_with("https://");
    const auto address = url.substr(url.find("://") + 3);
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()),
                                                                    &SSL_CTX_free);
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> stream(
        encrypted ? BIO_new_ssl_connect(context.get()) : BIO_new(BIO_s_connect()), &BIO_free_all);
    if (!stream) throw std::runtime_error("Could not ask the service: out of memory.");
    BIO_set_conn_hostname(stream.get(), address.c_str());
    if (BIO_do_connect(stream.get()) != 1) throw std::runtime_error("Could not connect to " + url + ".");
    const timeval patience{5, 0};
    ::setsockopt(static_cast<int>(BIO_get_fd(stream.get(), nullptr)), SOL_SOCKET, SO_RCVTIMEO, &patience,
                 sizeof patience);
    const auto request = "GET " + path + " HTTP/1.1\r\nHost: " + address + "\r\nConnection: close\r\n\r\n";
    BIO_write(stream.get(), request.data(), static_cast<int>(request.size()));
    std::string reply(64 * 1024, '\0');
    std::size_t size = 0;
    for (std::size_t got = 0;
         BIO_read_ex(stream.get(), reply.data() + size, reply.size() - size, &got) == 1;) {
        size += got;
        if (size == reply.size()) reply.resize(2 * size);
    }
    reply.resize(size);
    const auto end = reply.find("\r\n\r\n");
    if (end == std::string::npos) throw std::runtime_error("The service at " + url + " does not answer.");
    return {reply.substr(0, end), reply.substr(end + 4)};
}

/// "name{labels} value", one per line; those of one name and all labels are added up.
std::map<std::string, double> samplesOf(const std::string& text)
{
    std::map<std::string, double> samples;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto blank = line.rfind(' ');
        if (line.empty() || line.front() == '#' || blank == std::string::npos) continue;
        samples[line.substr(0, std::min(line.find('{'), blank))] +=
            std::strtod(line.c_str() + blank, nullptr);
    }
    return samples;
}

void printNumbers(const std::string& metrics)
{
    constexpr std::pair<const char*, const char*> shown[] = {
        {"tarnd_requests_total", "requests answered"},
        {"tarnd_requests_in_progress", "requests under way"},
        {"tarnd_transfers", "transfers under way"},
        {"tarnd_connections", "connections"},
        {"tarnd_sessions", "sessions"},
        {"tarnd_received_bytes_total", "bytes received"},
        {"tarnd_sent_bytes_total", "bytes sent"},
        {"tarnd_disk_free_bytes", "bytes free on the disk"},
        {"tarnd_database_pool_waiting", "waiting for the database"}};
    const auto samples = samplesOf(metrics);
    for (const auto& [name, words] : shown)
        if (const auto found = samples.find(name); found != samples.end())
            std::printf("%16.0f %s\n", found->second, words);
}

} // namespace

int printStatus(const StoreOptions& options)
{
    const auto& dataDir = options.dataDir;
    if (!options.databaseUrl.empty()) {
        std::printf("Several may serve one PostgreSQL database: ask each at its own address for "
                    "/health/ready and /metrics.\n");
        return notReady;
    }
    const auto server = serverOf(dataDir);
    if (!server) {
        std::printf("No tarnd serves %s.\n", dataDir.c_str());
        return notRunning;
    }
    if (server->url.empty()) {
        std::printf("Process %d uses %s, but does not serve it (yet).\n", server->pid, dataDir.c_str());
        return notReady;
    }
    std::printf("tarnd, process %d, serves %s at %s\n", server->pid, dataDir.c_str(), server->url.c_str());
    const auto ready = get(server->url, "/health/ready");
    std::printf("%s", ready.body.c_str());
    const auto metrics = get(server->url, "/metrics");
    metrics.isOk() ? printNumbers(metrics.body) : void(std::printf("Its numbers are switched off.\n"));
    return ready.isOk() ? 0 : notReady;
}

} // namespace tarnd
