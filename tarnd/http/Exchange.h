#pragma once

#include "tarnd/http/Reply.h"
#include "tarnd/http/RequestLog.h"
#include "tarnd/http/Routes.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace tarnd {

/// What every request is answered from. Outlives all of them.
struct Site {
    Store& store;
    std::string publicUrl;     ///< what public links begin with, without a slash at the end
    std::uint64_t maxFileSize; ///< bytes of one upload
    RequestLog log;
};

/// One request from its first line to its reply. Decides and calls the handlers, and knows nothing of
/// connections: the server feeds it and sends what it says. One thread at a time.
///
/// begin() → receive() as often as bytes come → finish(). Nothing throws: every failure is a reply. An
/// exchange that is destroyed before finish() has changed nothing.
class Exchange {
public:
    /// @param target path and query as on the request line
    Exchange(Site& site, std::string target);

    bool hasBegun() const { return begun; }

    /// The head is complete. True: the reply can go at once and the connection must end after it, because its
    /// body, if any, is not going to be read. False: go on with the body.
    bool begin(const std::string& method, Headers headers);

    /// The next bytes of the body.
    void receive(const char* data, std::size_t size);

    /// The body is complete, or begin() said that it does not matter. Call once.
    Reply finish();

private:
    template <class F>
    void guarded(F&& step);
    void route(const std::string& method, Headers headers);
    void fail(const ServiceError& error);

    Site& site;
    std::string target;
    std::string methodName;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    bool begun = false;
    std::uint64_t received = 0;
    const Route* taken = nullptr;
    std::optional<Request> request;
    std::optional<Call> call;
    std::optional<Reply> refusal; ///< why the request failed before its handler ran
};

} // namespace tarnd
