#include "tarnhost/CountingObserver.h"

#include <sstream>

namespace connector::host {
namespace {

/// The head of one metric. Operations need no escaping: they are a method and a word of a path, percent-encoded.
void announce(std::ostringstream& page, const std::string& name, const char* kind, const char* help)
{
    page << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << kind << '\n';
}

} // namespace

void CountingObserver::started(const ObservedRequest&)
{
    std::lock_guard lock(mutex);
    ++inFlight;
}

void CountingObserver::attempted(const ObservedRequest& request, const ObservedAttempt&)
{
    std::lock_guard lock(mutex);
    ++operations[request.operation].tries;
}

void CountingObserver::finished(const ObservedRequest& request, const ObservedResult& result)
{
    const double seconds = std::chrono::duration<double>(result.duration).count();
    std::lock_guard lock(mutex);
    --inFlight;
    Operation& operation = operations[request.operation];
    ++operation.byStatus[result.failure.empty() ? std::to_string(result.status) : "failed"];
    operation.sent += result.bytesSent;
    operation.received += result.bytesReceived;
    for (std::size_t i = 0; i < bounds.size(); ++i)
        if (seconds <= bounds[i]) ++operation.withinBound[i];
    ++operation.finished;
    operation.seconds += seconds;
}

std::string CountingObserver::text() const
{
    std::ostringstream page;
    std::lock_guard lock(mutex);
    announce(page, "tarn_client_requests_in_flight", "gauge", "Requests that have not finished.");
    page << "tarn_client_requests_in_flight " << inFlight << '\n';

    announce(page, "tarn_client_requests_total", "counter", "Requests that have finished.");
    for (const auto& [name, operation] : operations)
        for (const auto& [status, count] : operation.byStatus)
            page << "tarn_client_requests_total{operation=\"" << name << "\",status=\"" << status << "\"} "
                 << count << '\n';

    const auto perOperation = [&](const std::string& metric, const char* help,
                                  std::uint64_t Operation::*counter) {
        announce(page, metric, "counter", help);
        for (const auto& [name, operation] : operations)
            page << metric << "{operation=\"" << name << "\"} " << operation.*counter << '\n';
    };
    perOperation("tarn_client_tries_total", "Tries of requests.", &Operation::tries);
    perOperation("tarn_client_sent_bytes_total", "Bytes of bodies sent.", &Operation::sent);
    perOperation("tarn_client_received_bytes_total", "Bytes of bodies received.", &Operation::received);

    const std::string duration = "tarn_client_request_duration_seconds";
    announce(page, duration, "histogram", "Time from the start of a request to its end, pauses included.");
    for (const auto& [name, operation] : operations) {
        const std::string label = "{operation=\"" + name + "\"";
        for (std::size_t i = 0; i < bounds.size(); ++i)
            page << duration << "_bucket" << label << ",le=\"" << bounds[i] << "\"} "
                 << operation.withinBound[i] << '\n';
        page << duration << "_bucket" << label << ",le=\"+Inf\"} " << operation.finished << '\n'
             << duration << "_sum" << label << "} " << operation.seconds << '\n'
             << duration << "_count" << label << "} " << operation.finished << '\n';
    }
    return page.str();
}

} // namespace connector::host
