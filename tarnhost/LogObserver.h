#pragma once

#include "tarnhost/RequestObserver.h"

#include <functional>
#include <string>

namespace connector::host {

/// Writes one line for each try and one for each request:
///
///     #7 try 1: 503, 0 B sent, 31 B received; waiting 0 ms, connecting 0.2 ms, …; again after 480 ms
///     #7 GET files /service/v1/files/a.txt [backup]: 200, 0 B sent, 1204 B received, 2 tries, 493.1 ms
///
/// and one for each failure that nobody looked at.
class TARN_API LogObserver : public RequestObserver {
public:
    enum class Detail { requests, tries };

    /// @param write  takes a line without its end; called on the delivery threads, several at a time
    explicit LogObserver(std::function<void(const std::string& line)> write,
                         Detail detail = Detail::requests);

    void attempted(const ObservedRequest& request, const ObservedAttempt& attempt) override;
    void finished(const ObservedRequest& request, const ObservedResult& result) override;
    void unobserved(const std::exception_ptr& failure) override;

private:
    const std::function<void(const std::string& line)> write;
    const Detail detail;
};

} // namespace connector::host
