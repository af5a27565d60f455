#pragma once

#include "tarn/foundation/Export.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarntesting {

/// A Tarn service inside the test's own process: the rules, replies and errors of `tarnd`, over a folder that is gone
/// when the test is.
///
///     TestService service;
///     TarnHost host({.endpoint = service.url()});
///     … log in with service.addUser("alice") as token …
///     service.script("readFile #2 cut 10");   // the second readFile ends after 10 bytes
///     …
///     EXPECT_THAT(service.unfired(), IsEmpty());
///
/// Each is a service of its own, on a free loopback port. All functions may be called on any thread.
class TARN_API TestService {
public:
    struct Options {
        std::string faults = {};                            ///< as for script()
        std::chrono::minutes sessionIdle{30};               ///< by the service's clock
        std::uint64_t maxFileSize = std::uint64_t{1} << 40; ///< bytes of one upload; more is refused with 413
    };

    /// Accepts connections once constructed.
    /// @throws std::invalid_argument for a fault script that cannot be read
    /// @throws std::runtime_error when there is no room for its folder or no port
    TestService();
    explicit TestService(Options options);

    /// Ends at once: requests under way get no reply.
    ~TestService();
    TestService(const TestService&) = delete;
    TestService& operator=(const TestService&) = delete;

    /// "http://127.0.0.1:PORT"
    const std::string& url() const;

    /// Makes a user. @return the token to log in with
    /// @throws std::runtime_error when there is one of that name
    std::string addUser(const std::string& name);

    /// Removes a user and all of theirs, whose sessions end.
    void removeUser(const std::string& name);

    /// Lets requests from now on go wrong as these lines say, in place of what was said before:
    ///
    ///     OPERATION MOMENT FAULT     OPERATION  readFile, createFolder, … as the clients call it, or any
    ///                                MOMENT     always, #2 (the second), every 3, 5% (by chance)
    ///                                FAULT      wait 200ms   answered later
    ///                                           refuse 503   refused, nothing has changed
    ///                                           drop         reset before it is done
    ///                                           lose         done, and no reply
    ///                                           cut 10       done, and 10 bytes of the reply's body
    ///     seed 42                    repeats the chances of an earlier run
    ///
    /// Of several lines that fit a request the first stands; each counts requests by itself.
    /// @throws std::invalid_argument "line 3: …", with what could stand there
    void script(const std::string& lines);

    /// The lines of the script that have not struck.
    std::vector<std::string> unfired() const;

    /// What the script's chances come from; tell it when a test fails.
    std::uint32_t seed() const;

    /// Moves the service's clock, by which sessions end and items are dated.
    void advance(std::chrono::milliseconds time);

private:
    struct Parts;
    std::unique_ptr<Parts> parts;
};

} // namespace tarntesting
