#include "tarnd/Serve.h"

#include "tarnd/ListenSocket.h"
#include "tarnd/SettingsWatch.h"
#include "tarnd/http/HttpServer.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>

namespace tarnd {

namespace {

constexpr timespec lookAtFilesEvery{2, 0};

sigset_t blockSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // a file that may grow no further is an error of its upload
    return signals;
}

/// The usual soft limit of 1024 open files is less than connections, contents and database take together.
void raiseFileLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

std::string readPem(const std::string& file)
{
    if (file.empty()) return {};
    std::string pem;
    if (!std::filesystem::is_directory(file)) {
        std::ifstream in(file, std::ios::binary);
        pem.assign(std::istreambuf_iterator<char>(in), {});
    }
    if (pem.empty())
        throw std::runtime_error("Could not read " + file + ": give a PEM file that this user may read.");
    return pem;
}

void refuseOpenListening(const ServeOptions& options, const ListenSocket& socket)
{
    if (socket.isLoopback() || options.insecure || !options.tlsCertificateFile.empty()) return;
    throw std::runtime_error("Other machines could reach " + socket.name() +
                             " and tokens would travel unencrypted. Give --tls-cert and --tls-key, listen on "
                             "127.0.0.1, or insist with --insecure.");
}

std::string withoutTrailingSlash(std::string url)
{
    url.erase(url.find_last_not_of('/') + 1);
    return url;
}

ServerOptions serverOptionsOf(const ServeOptions& options)
{
    ServerOptions server;
    server.idleTimeout = options.idleTimeout;
    // Whoever is patient with silence only for so long is not more patient with slowness.
    for (auto* limit : {&server.limits.head, &server.limits.upload, &server.limits.download})
        *limit = std::min(*limit, options.idleTimeout);
    server.tlsCertificate = readPem(options.tlsCertificateFile);
    server.tlsKey = readPem(options.tlsKeyFile);
    return server;
}

void tellRecovery(const RecoveryReport& report)
{
    if (report.abandonedUploads + report.orphanedContents > 0)
        std::fprintf(stderr, "tarnd: removed %zu unfinished uploads and %zu contents that no file has\n",
                     report.abandonedUploads, report.orphanedContents);
}

/// A log that cannot be opened anew goes on where it was.
void reopenLogs(Site& site)
{
    try {
        site.log.reopen();
        site.audit.reopen();
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "tarnd: %s\n", error.what());
    }
}

void applyLimits(const ServeOptions& options, Site& site)
{
    site.rate.setLimit(options.requestRate);
    site.userRate.setLimit(options.userRequestRate);
    site.addressTransfers.setLimit(options.addressTransfers);
    site.userTransfers.setLimit(options.userTransfers);
    site.store.sessions().setLimits(options.sessions);
    site.maxFileSize = options.maxFileSize;
}

/// The certificate first: where it is refused, all stays as it was.
void reload(const std::function<ServeOptions()>& readAgain, Site& site, HttpServer& server)
{
    try {
        const auto options = readAgain();
        if (!options.tlsCertificateFile.empty())
            server.useCertificate(readPem(options.tlsCertificateFile), readPem(options.tlsKeyFile));
        applyLimits(options, site);
        std::fprintf(stderr, "tarnd: limits and certificate are read anew\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tarnd: limits and certificate stay as they were: %s\n", error.what());
    }
}

/// @returns the signal that came, or 0 when the files have changed
int waitForNews(const sigset_t& signals, SettingsWatch& files)
{
    for (;;) {
        const int signal = sigtimedwait(&signals, nullptr, &lookAtFilesEvery);
        if (signal > 0) return signal;
        if (files.haveChanged()) return 0;
    }
}

/// Until the end is asked for.
void takeOverChanges(const sigset_t& signals, const ServeOptions& options,
                     const std::function<ServeOptions()>& readAgain, Site& site, HttpServer& server)
{
    SettingsWatch files({options.tlsCertificateFile, options.tlsKeyFile, options.configFile});
    for (;;) {
        const int signal = waitForNews(signals, files);
        if (signal != 0 && signal != SIGHUP) return;
        if (signal == SIGHUP) {
            reopenLogs(site);
            files.acknowledge();
        }
        reload(readAgain, site, server);
    }
}

bool isEndAskedFor(const sigset_t& signals)
{
    constexpr timespec atOnce{0, 0};
    for (;;) {
        const int signal = sigtimedwait(&signals, nullptr, &atOnce);
        if (signal != SIGHUP) return signal > 0;
    }
}

/// Lets requests under way end. @return false when the time is over or the end is asked for again
bool isDrained(HttpServer& server, const sigset_t& signals, std::chrono::milliseconds limit,
               bool& isAskedAgain)
{
    constexpr std::chrono::milliseconds lookAtSignalsEvery{100};
    for (auto rest = limit; !isAskedAgain; rest -= lookAtSignalsEvery) {
        if (server.drain(std::clamp(rest, std::chrono::milliseconds(0), lookAtSignalsEvery))) return true;
        if (rest <= lookAtSignalsEvery) return false;
        isAskedAgain = isEndAskedFor(signals);
    }
    return false;
}

/// Who waits for a database that does not answer is told so: the end does not wait for it as well.
void drain(HttpServer& server, Store& store, const sigset_t& signals, std::chrono::milliseconds limit)
{
    const auto databaseLimit = std::min<std::chrono::milliseconds>(limit / 3, std::chrono::seconds(1));
    bool isAskedAgain = false;
    for (const auto part : {databaseLimit, limit - 2 * databaseLimit, databaseLimit}) {
        if (isDrained(server, signals, part, isAskedAgain)) return;
        store.interruptWaits();
    }
    std::fprintf(stderr, "tarnd: requests that were still under way were cut off%s.\n",
                 isAskedAgain ? "" : "; --drain-timeout gives them longer");
}

std::shared_ptr<FaultScript> faultScriptOf(const ServeOptions& options)
{
    const auto& file = options.faultScriptFile;
    if (file.empty()) return {};
    std::ifstream in(file);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    if (!in) throw std::runtime_error("Could not read " + file + ".");
    try {
        auto script = std::make_shared<FaultScript>(text);
        std::fprintf(stderr, "tarnd: goes wrong as %s says, seed %u\n", file.c_str(), script->seed());
        return script;
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(file + ", " + error.what());
    }
}

} // namespace

void serve(const ServeOptions& options, const std::function<ServeOptions()>& readAgain)
{
    const auto signals = blockSignals();
    raiseFileLimit();
    // Before the store is opened: a port that is taken or open to everybody must not leave traces on the disk.
    ListenSocket socket(options.listen);
    refuseOpenListening(options, socket);
    const auto url = (options.tlsCertificateFile.empty() ? "http://" : "https://") + socket.name();
    const auto publicUrl = options.publicUrl.empty() ? url : withoutTrailingSlash(options.publicUrl);
    auto serverOptions = serverOptionsOf(options);

    Store store(options.store, Purpose::serve);
    if (options.verbose) tellRecovery(store.recovery());
    Site site{
        store,
        publicUrl,
        options.maxFileSize,
        RequestLog(options.log.value_or(options.verbose ? LogFormat::text : LogFormat::off), options.logFile),
        AuditLog(options.auditLogFile),
        options.metrics,
        !options.noWeb};
    applyLimits(options, site);
    const auto faults = faultScriptOf(options);
    site.faults.set(faults);
    serverOptions.listenSocket = socket.release();
    HttpServer server(serverOptions, site);
    store.announce(url); // first: whoever reads the line below may look for it
    std::printf("{\"url\":\"%s\"}\n", url.c_str());
    std::fflush(stdout);

    takeOverChanges(signals, options, readAgain, site, server);
    drain(server, store, signals, options.drainTimeout);
    for (const auto& line : faults ? faults->unfired() : std::vector<std::string>())
        std::fprintf(stderr, "tarnd: never happened: %s\n", line.c_str());
}

} // namespace tarnd
