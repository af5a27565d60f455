#include "tests/support/TarndProcess.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <random>
#include <signal.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarnd::test {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string readFile(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::filesystem::path uniqueFolder()
{
    auto name = (std::filesystem::temp_directory_path() / "tarnd-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp: " + std::string(strerror(errno)));
    return name;
}

/// Starts a program with standard output on `outFd` and standard error appended to `errFile`.
pid_t spawn(const std::vector<std::string>& commandLine, int outFd, const std::filesystem::path& errFile)
{
    std::vector<char*> argv;
    for (const auto& argument : commandLine)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork: " + std::string(strerror(errno)));
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        dup2(outFd, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(err);
    return child;
}

/// The exit code, or -1 when the process still runs after `limit`.
int waitFor(pid_t child, milliseconds limit)
{
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    pollfd waiting{handle, POLLIN, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(limit.count()));
    close(handle);
    if (ready <= 0) return -1;
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Everything up to the end of the stream, or up to the first line feed; throws at the deadline.
std::string readUntil(int fd, Clock::time_point deadline, bool firstLineOnly)
{
    std::string text;
    char buffer[4096];
    while (true) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{fd, POLLIN, 0};
        if (left <= 0 || poll(&waiting, 1, static_cast<int>(left)) == 0)
            throw std::runtime_error("no answer from the program in time");
        const auto count = read(fd, buffer, firstLineOnly ? 1 : sizeof buffer);
        if (count <= 0) return text;
        if (firstLineOnly && buffer[0] == '\n') return text;
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

struct Pipe {
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe: " + std::string(strerror(errno)));
    }

    ~Pipe()
    {
        closeWriter();
        close(ends[0]);
    }

    void closeWriter()
    {
        if (ends[1] >= 0) close(std::exchange(ends[1], -1));
    }

    int ends[2] = {-1, -1};
};

std::string tarnd()
{
    const char* folder = std::getenv("TARN_BIN_DIR");
    if (folder == nullptr) throw std::runtime_error("Set TARN_BIN_DIR to the folder that holds tarnd.");
    return std::string(folder) + "/tarnd";
}

std::string testDatabase()
{
    const char* url = std::getenv("TARN_TEST_DATABASE");
    return url == nullptr ? "" : url;
}

void runSql(const std::string& statement)
{
    const auto result =
        runCommand({"psql", "--no-psqlrc", "--quiet", "--command", statement, testDatabase()});
    if (result.exitCode != 0) throw std::runtime_error("psql: " + result.err);
}

/// Makes a schema of its own in the test database; empty without such a database.
std::string uniqueSchema()
{
    static std::atomic<int> counter{0};
    if (testDatabase().empty()) return {};
    auto name = "tarn_test_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
    runSql("CREATE SCHEMA " + name);
    return name;
}

/// The test database, with every name in it looked up in `schema`.
std::string databaseIn(const std::string& schema)
{
    if (schema.empty()) return {};
    const auto url = testDatabase();
    return url + (url.find('?') == std::string::npos ? "?" : "&") + "options=-csearch_path%3D" + schema;
}

/// The object store of the tests, with everything below `name`; empty without one.
std::string objectsBelow(const std::string& name)
{
    const char* given = std::getenv("TARN_TEST_OBJECTS");
    std::string url = given ? given : "";
    return url.empty() ? url : url.insert(url.find('?'), "/" + name);
}

/// A port that the kernel gives to nobody who asks for any: when its service ends, a client that tries it again
/// must not meet a stranger, nor a service that is to continue there find it taken.
std::uint16_t portOfItsOwn()
{
    std::random_device random;
    for (;;) {
        const auto port = std::uniform_int_distribution<std::uint16_t>(10000, 32767)(random);
        const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        const bool isFree = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(probe);
        if (isFree) return port;
    }
}

} // namespace

CommandResult runCommand(const std::vector<std::string>& commandLine, std::chrono::seconds limit)
{
    const auto deadline = Clock::now() + limit;
    const auto folder = uniqueFolder();
    Pipe out;
    const pid_t child = spawn(commandLine, out.ends[1], folder / "stderr");
    out.closeWriter();
    CommandResult result;
    try {
        result.out = readUntil(out.ends[0], deadline, false);
        result.exitCode =
            waitFor(child, std::max(milliseconds(1),
                                    std::chrono::duration_cast<milliseconds>(deadline - Clock::now())));
    } catch (const std::exception&) {
        result.exitCode = -1;
    }
    result.err = readFile(folder / "stderr");
    std::filesystem::remove_all(folder);
    if (result.exitCode >= 0) return result;
    ::kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    throw std::runtime_error(commandLine.front() + " did not end in time: " + result.err);
}

TarndProcess::TarndProcess(std::vector<std::string> extraArguments)
    : serveArguments(std::move(extraArguments))
    , schema(uniqueSchema())
    , database(databaseIn(schema))
    , folder(uniqueFolder())
    , data(folder / "data")
{
    contents = objectsBelow(folder.filename());
    std::filesystem::create_directory(data);
}

TarndProcess::TarndProcess(std::vector<std::string> arguments, std::string databaseUrl,
                           std::filesystem::path dataDirectory, std::string contentsUrl)
    : serveArguments(std::move(arguments))
    , database(std::move(databaseUrl))
    , contents(std::move(contentsUrl))
    , folder(uniqueFolder())
    , data(dataDirectory.empty() ? folder / "data" : std::move(dataDirectory))
{
}

std::unique_ptr<TarndProcess> TarndProcess::beside(const TarndProcess& first)
{
    if (!first.usesPostgres()) throw std::logic_error("an SQLite database serves one tarnd");
    return std::unique_ptr<TarndProcess>(
        new TarndProcess(first.serveArguments, first.database, first.data, first.contents));
}

std::unique_ptr<TarndProcess> TarndProcess::over(std::string databaseUrl, std::filesystem::path dataDir,
                                                 std::string contentsUrl)
{
    return std::unique_ptr<TarndProcess>(
        new TarndProcess({}, std::move(databaseUrl), std::move(dataDir), std::move(contentsUrl)));
}

TarndProcess::~TarndProcess()
{
    kill();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    try {
        if (!schema.empty()) runSql("SET client_min_messages = error; DROP SCHEMA " + schema + " CASCADE");
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
    }
}

std::vector<std::string> TarndProcess::commandLine(std::vector<std::string> arguments) const
{
    arguments.insert(arguments.begin(), tarnd());
    arguments.insert(arguments.end(), {"--data", data.string()});
    if (!database.empty()) arguments.insert(arguments.end(), {"--database", database});
    if (!contents.empty()) arguments.insert(arguments.end(), {"--contents", contents});
    return arguments;
}

void TarndProcess::start(std::uint16_t chosenPort)
{
    if (isRunning()) throw std::logic_error("tarnd runs already");
    if (chosenPort == 0) chosenPort = portOfItsOwn();
    Pipe out;
    auto arguments = commandLine({"serve", "--listen", "127.0.0.1:" + std::to_string(chosenPort)});
    arguments.insert(arguments.end(), serveArguments.begin(), serveArguments.end());
    pid = spawn(arguments, out.ends[1], folder / "stderr");
    out.closeWriter();
    try {
        const auto line = readUntil(out.ends[0], Clock::now() + std::chrono::seconds(20), true);
        baseUrl = nlohmann::json::parse(line).at("url").get<std::string>();
    } catch (const std::exception& e) {
        kill();
        throw std::runtime_error(std::string("tarnd did not start: ") + e.what() + "\n" + errors());
    }
}

void TarndProcess::addArguments(const std::vector<std::string>& arguments)
{
    serveArguments.insert(serveArguments.end(), arguments.begin(), arguments.end());
}

std::string TarndProcess::addUser(const std::string& name)
{
    auto result = run({"user", "add", name});
    if (result.exitCode != 0) throw std::runtime_error("tarnd user add: " + result.err);
    result.out.erase(result.out.find_last_not_of('\n') + 1);
    return result.out;
}

CommandResult TarndProcess::run(std::vector<std::string> arguments) const
{
    return runCommand(commandLine(std::move(arguments)));
}

CommandResult TarndProcess::runBare(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), tarnd());
    return runCommand(arguments);
}

int TarndProcess::terminate()
{
    requestTermination();
    return waitForExit();
}

void TarndProcess::requestTermination()
{
    signal(SIGTERM);
}

void TarndProcess::pause()
{
    signal(SIGSTOP);
    int status = 0;
    if (waitpid(pid, &status, WUNTRACED) == pid && WIFSTOPPED(status)) return;
    pid = -1;
    throw std::runtime_error("tarnd ended instead of pausing\n" + errors());
}

void TarndProcess::resume()
{
    signal(SIGCONT);
}

void TarndProcess::signal(int number)
{
    if (!isRunning()) throw std::logic_error("tarnd does not run");
    ::kill(pid, number);
}

int TarndProcess::waitForExit(std::chrono::seconds limit)
{
    const int code = waitFor(pid, limit);
    if (code < 0) {
        kill();
        throw std::runtime_error("tarnd did not stop in time\n" + errors());
    }
    pid = -1;
    return code;
}

void TarndProcess::kill()
{
    if (!isRunning()) return;
    ::kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = -1;
}

std::uint16_t TarndProcess::port() const
{
    return static_cast<std::uint16_t>(std::stoi(baseUrl.substr(baseUrl.rfind(':') + 1)));
}

std::string TarndProcess::errors() const
{
    return readFile(folder / "stderr");
}

} // namespace tarnd::test
