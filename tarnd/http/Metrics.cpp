#include "tarnd/http/Metrics.h"

#include <ctime>
#include <sstream>

namespace tarnd {

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

constexpr unsigned firstStatus = 200;

/// Families and their samples, one after the other.
class Exposition {
public:
    Exposition() { out.precision(15); }

    void family(std::string_view theName, std::string_view type, std::string_view help)
    {
        name = theName;
        out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
    }

    template <class Number>
    void sample(const std::string& labels, Number number)
    {
        out << name << (labels.empty() ? "" : "{" + labels + "}") << ' ' << number << '\n';
    }

    template <class Number>
    void single(std::string_view theName, std::string_view type, std::string_view help, Number number)
    {
        family(theName, type, help);
        sample("", number);
    }

    void histogram(const std::string& labels, const Histogram::Counts& counts)
    {
        const auto more = labels.empty() ? "" : labels + ",";
        std::uint64_t all = 0;
        for (std::size_t i = 0; i < counts.buckets.size(); ++i) {
            all += counts.buckets[i];
            out << name << "_bucket{" << more << "le=\"";
            i < Histogram::bounds.size() ? out << Histogram::bounds[i] : out << "+Inf";
            out << "\"} " << all << '\n';
        }
        const auto around = labels.empty() ? "" : "{" + labels + "}";
        out << name << "_sum" << around << ' ' << counts.seconds << '\n';
        out << name << "_count" << around << ' ' << all << '\n';
    }

    std::string text() const { return out.str(); }

private:
    std::string name;
    std::ostringstream out;
};

std::string labelsOf(std::size_t route)
{
    const auto all = allRoutes();
    const auto label = [](std::string_view name, std::string_view value) {
        return std::string(name) + "=\"" + std::string(value) + '"';
    };
    if (route == all.size()) return label("method", "-") + "," + label("route", "-");
    return label("method", all[route].method) + "," + label("route", all[route].path);
}

void addStorage(Exposition& out, const Store::Numbers& storage)
{
    if (storage.sessions)
        out.single("tarnd_sessions", "gauge", "Sessions that are alive.", *storage.sessions);
    out.family("tarnd_commit_duration_seconds", "histogram", "Commits of the database, with their syncs.");
    out.histogram("", storage.commits);
    out.family("tarnd_content_sync_duration_seconds", "histogram", "Bringing a content to the disk.");
    out.histogram("", storage.syncs);
    out.single("tarnd_disk_free_bytes", "gauge", "Room on the disk of the contents.", storage.freeBytes);
    const auto pool = [&](const char* name, const char* help, std::size_t Gate::Use::*number) {
        out.family(name, "gauge", help);
        out.sample("pool=\"read\"", storage.readers.*number);
        out.sample("pool=\"write\"", storage.writers.*number);
    };
    pool("tarnd_database_pool_size", "Requests that may use the database at a time.", &Gate::Use::places);
    pool("tarnd_database_pool_used", "Requests that use the database.", &Gate::Use::taken);
    pool("tarnd_database_pool_waiting", "Requests that wait for the database.", &Gate::Use::waiting);
}

} // namespace

Metrics::Metrics() : routes(allRoutes().size() + 1), started(std::time(nullptr)) {}

void Metrics::ended(const Route* route, unsigned status, std::chrono::steady_clock::duration took,
                    std::uint64_t bytesReceived, std::uint64_t bytesSent)
{
    auto& own = routes[route ? static_cast<std::size_t>(route - allRoutes().data()) : allRoutes().size()];
    own.durations.add(took);
    const auto place = status < firstStatus ? 0 : status - firstStatus + 1;
    own.byStatus[std::min<std::size_t>(place, statuses - 1)].fetch_add(1, relaxed);
    received.fetch_add(bytesReceived, relaxed);
    sent.fetch_add(bytesSent, relaxed);
}

std::string Metrics::text(const Store::Numbers& storage) const
{
    Exposition out;
    out.single("tarnd_start_time_seconds", "gauge", "When the service started, since 1970.", started);
    out.family("tarnd_requests_total", "counter", "Requests that have ended; status 0: without a reply.");
    for (std::size_t i = 0; i < routes.size(); ++i)
        for (std::size_t place = 0; place < statuses; ++place)
            if (const auto count = routes[i].byStatus[place].load(relaxed))
                out.sample(labelsOf(i) + ",status=\"" +
                               std::to_string(place == 0 ? 0 : place - 1 + firstStatus) + '"',
                           count);
    out.family("tarnd_request_duration_seconds", "histogram", "From the head to the end of the reply.");
    for (std::size_t i = 0; i < routes.size(); ++i)
        if (const auto counts = routes[i].durations.counts(); counts.seconds > 0) // few routes are ever used
            out.histogram(labelsOf(i), counts);
    out.single("tarnd_received_bytes_total", "counter", "Bytes of bodies that came in.", received.load());
    out.single("tarnd_sent_bytes_total", "counter", "Bytes of bodies that went out.", sent.load());
    out.single("tarnd_connections", "gauge", "Open connections.", connections.load());
    out.single("tarnd_requests_in_progress", "gauge", "Requests under way.", requests.load());
    out.family("tarnd_transfers", "gauge", "Contents on their way.");
    out.sample("direction=\"in\"", uploads.load());
    out.sample("direction=\"out\"", downloads.load());
    addStorage(out, storage);
    return out.text();
}

} // namespace tarnd
