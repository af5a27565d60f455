#pragma once

#include "tarnd/http/AtATime.h"
#include "tarnd/http/AuditLog.h"
#include "tarnd/http/FailedLogins.h"
#include "tarnd/http/FaultScript.h"
#include "tarnd/http/Metrics.h"
#include "tarnd/http/Reply.h"
#include "tarnd/http/RequestLog.h"
#include "tarnd/http/RequestRate.h"
#include "tarnd/http/Routes.h"
#include "tarnd/store/Secrets.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace tarnd {

/// Who is told the numbers of the service.
enum class NumbersFor {
    nobody,
    loopback, ///< programs on the same machine that do not ask through a proxy
    anybody,
};

/// What every request is answered from. Outlives all of them.
struct Site {
    Store& store;
    std::string publicUrl;                  ///< what public links begin with, without a slash at the end
    std::atomic<std::uint64_t> maxFileSize; ///< bytes of one upload
    RequestLog log;
    AuditLog audit;
    NumbersFor numbersFor;
    bool web = true; ///< the application for browsers is there
    Metrics metrics = {};
    FailedLogins failedLogins = {};
    RequestRate rate = {};     ///< of an address
    RequestRate userRate = {}; ///< of a user, wherever the requests come from
    AtATime addressTransfers = {}, userTransfers = {};
    const std::string requestIds = randomHex(4); ///< what the ids of requests begin with
    std::atomic<std::uint32_t> requests = 0;     ///< so far
    Faults faults = {};                          ///< what goes wrong on purpose
};

/// One request from its first line to its reply. Decides and calls the handlers, and knows nothing of
/// connections: the server feeds it and sends what it says. One thread at a time.
///
/// begin() → receive() as often as bytes come → finish(). Nothing throws: every failure is a reply. An
/// exchange that is destroyed before finish() has changed nothing.
class Exchange {
public:
    /// @param target path and query as on the request line
    Exchange(Site& site, Client client, std::string target);

    bool hasBegun() const { return begun; }

    enum class Body {
        wanted,  ///< all of it goes to receive()
        refused, ///< so does what comes, but only to be dropped
        endless, ///< it is on its way, and too much to wait for: the reply goes while it comes
        ignored, ///< none comes, or nobody knows how much: the reply can go at once, and must end the connection
    };

    /// The head is complete: what to do with the body, if there is one.
    Body begin(RequestHead head);

    /// The next bytes of the body. False: no more of it is read, and the connection must end.
    bool receive(const char* data, std::size_t size);

    /// The body is complete, or ignored. Call once.
    /// @param trailers  header fields that came behind a chunked body
    Reply finish(Headers trailers = {});

    /// The next bytes of a reply that has a source, and how many; 0 at its end, nothing when it cannot be completed:
    /// the connection must end. @pre finish() gave such a reply
    std::optional<std::size_t> produce(char* data, std::size_t size);

    /// Nothing more happens: tells the logs and the numbers. Call once, last.
    /// @param complete  the whole reply went out
    void ended(bool complete);

    /// What the site's script lets go wrong with this request. A refusal is the reply already; the rest is for
    /// whoever has the connection. @pre hasBegun()
    const std::optional<Fault>& fault() const { return scripted; }

    /// How long the reply must be held back. @pre finish()
    std::chrono::milliseconds delay() const;

private:
    template <class F>
    void guarded(F&& step);
    void route(RequestHead head);
    void requireSessionBefore(const ServiceError& error);
    void requireSession();
    void fail(const ServiceError& error);
    void requireWatcher() const;
    void limitRequests();
    void beginSession(const std::string& id);
    void beginTransfer(Gauge& gauge);
    void endTransfer();

    /// The body of its reply stays here.
    bool isHead() const { return methodName == "HEAD"; }

    std::string requestId() const;
    LoggedRequest logged(bool complete) const;

    Site& site;
    const Client client;
    const std::uint32_t number;
    std::string target;
    std::string methodName;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    bool begun = false;
    std::uint64_t received = 0;              ///< bytes of the body
    std::uint64_t receivedBeforeRefusal = 0; ///< of these
    const Route* taken = nullptr;
    std::optional<Request> request;
    std::optional<Call> call;
    std::optional<Fault> scripted;
    std::optional<Reply> refusal;       ///< why the request failed before its handler ran
    std::string form;                   ///< the body of a request that has its session in there
    std::shared_ptr<BodySource> source; ///< of the reply
    FailedLogins::HeldBack heldBack;
    unsigned status = 0;    ///< of the reply; 0: none yet
    std::uint64_t sent = 0; ///< bytes of its body
    const Counted underWay;
    std::optional<Counted> transfer;
    AtATime::Turn addressTurn, userTurn; ///< of the transfer
};

} // namespace tarnd
