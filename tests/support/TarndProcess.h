#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tarnd::test {

/// What a program left behind when it ended.
struct CommandResult {
    int exitCode = -1; ///< 128 + the signal's number when a signal ended it
    std::string out;
    std::string err;
};

/// Runs a program to its end and gathers its output; kills it and throws when it takes longer than `limit`.
CommandResult runCommand(const std::vector<std::string>& commandLine,
                         std::chrono::seconds limit = std::chrono::seconds(60));

/// A `tarnd` of a test's own: over a fresh data directory in the temporary folder, on a free loopback port.
///
///     TarndProcess service;                       // SQLite, nothing runs yet
///     const auto token = service.addUser("alice"); // works before start() and while the service runs
///     service.start();
///     … service.url() …
///     EXPECT_EQ(service.terminate(), 0);          // or kill(); start() again continues with the same data
///
/// The program is taken from the folder that the environment variable TARN_BIN_DIR names. With
/// TARN_TEST_DATABASE set to the postgresql:// URL of an empty database, each object works in a schema of its
/// own in there (`psql` makes and drops it); otherwise the data directory holds an SQLite database.
///
/// With TARN_TEST_OBJECTS set to an s3:// URL contents are in there, below a name of the object's own; scripts/with-objects
/// sets it. They stay.
///
/// The destructor kills what still runs and removes directory and schema. A test program that dies takes its
/// services with it. Call start() on a thread that lives as long as the service: the kernel ends the child
/// with that thread. Every wait is bounded; running out of time throws std::runtime_error with what the
/// service wrote to stderr.
class TarndProcess {
public:
    /// `serveArguments` are appended to `tarnd serve --data DIR --listen 127.0.0.1:0`.
    explicit TarndProcess(std::vector<std::string> serveArguments = {});

    /// Another tarnd in front of the database and the contents of `first`, which owns both and outlives it.
    /// @pre first.usesPostgres()
    static std::unique_ptr<TarndProcess> beside(const TarndProcess& first);

    /// One in front of that PostgreSQL database, which stays; over the contents in `dataDir`, which stay too, or
    /// a folder of its own.
    /// @param databaseUrl  empty: SQLite in the folder
    /// @param contentsUrl  s3://…; empty: contents in the folder
    static std::unique_ptr<TarndProcess> over(std::string databaseUrl, std::filesystem::path dataDir = {},
                                              std::string contentsUrl = {});

    ~TarndProcess();
    TarndProcess(const TarndProcess&) = delete;
    TarndProcess& operator=(const TarndProcess&) = delete;

    /// Starts the service and returns once it accepts connections. @pre not running
    /// @param chosenPort  that of an earlier start; 0: any that is free
    void start(std::uint16_t chosenPort = 0);

    /// Gives further starts these arguments, too.
    void addArguments(const std::vector<std::string>& arguments);

    /// `tarnd user add NAME`; returns the new token.
    std::string addUser(const std::string& name);

    /// Runs `tarnd ARGUMENTS… --data DIR` (and `--database`) to its end.
    CommandResult run(std::vector<std::string> arguments) const;

    /// The same without them.
    static CommandResult runBare(std::vector<std::string> arguments);

    /// SIGTERM, then waits for the end; returns the exit code (128 + signal when a signal ended it).
    int terminate();

    /// Sends SIGTERM without waiting.
    void requestTermination();

    /// Returns when no thread of it runs any more, until resume().
    void pause();
    void resume();

    /// Sends any signal.
    void signal(int number);

    /// Waits for the end of a service that was told to stop; returns its exit code.
    int waitForExit(std::chrono::seconds limit = std::chrono::seconds(20));

    /// SIGKILL, then reaps: what a power cut leaves of the process.
    void kill();

    bool isRunning() const { return pid > 0; }

    pid_t processId() const { return pid; }

    /// "http://127.0.0.1:PORT" (https with --tls-cert), without a slash at the end. @pre started once
    const std::string& url() const { return baseUrl; }

    std::uint16_t port() const;

    const std::filesystem::path& dataDir() const { return data; }

    /// Works on a PostgreSQL database rather than on one of its own.
    bool usesPostgres() const { return !database.empty(); }

    /// Keeps contents in an object store rather than in the data directory.
    bool usesObjects() const { return !contents.empty(); }

    /// What the service has written to standard error since it was first started.
    std::string errors() const;

private:
    TarndProcess(std::vector<std::string> arguments, std::string databaseUrl,
                 std::filesystem::path dataDirectory, std::string contentsUrl);

    std::vector<std::string> commandLine(std::vector<std::string> arguments) const;

    std::vector<std::string> serveArguments;
    std::string schema;           ///< empty with SQLite
    std::string database;         ///< value of --database, empty with SQLite
    std::string contents;         ///< value of --contents, empty with a folder
    std::filesystem::path folder; ///< holds the data directory and the file of standard error
    std::filesystem::path data;
    std::string baseUrl;
    pid_t pid = -1;
};

} // namespace tarnd::test
