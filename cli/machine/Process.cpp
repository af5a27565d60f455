#include "cli/machine/Process.h"

#include "cli/machine/Environment.h"
#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>

namespace tarncli::process {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct Pipe {
    FileDescriptor reader;
    FileDescriptor writer;
};

Pipe makePipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throwErrno("Could not start", "a program");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::vector<char*> argumentsOf(const std::vector<std::string>& commandLine)
{
    std::vector<char*> arguments;
    for (const auto& argument : commandLine)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return arguments;
}

/// Ignored and blocked signals outlast exec; the program expects them as the system has them.
void restoreSignals()
{
    for (const int signal : {SIGPIPE, SIGXFSZ, SIGINT, SIGQUIT, SIGTERM, SIGHUP})
        std::signal(signal, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// In the child, where only what is safe after fork in a program with threads may be called.
[[noreturn]] void become(char* const* arguments, int out, int err, bool detached)
{
    const int in = open("/dev/null", O_RDONLY);
    if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(127);
    // A lock or the writing end of a pipe that stayed open in a server would be held for as long as it runs.
    syscall(SYS_close_range, 3U, ~0U, 0U);
    if (detached && (setsid() < 0 || chdir("/") != 0)) _exit(127);
    restoreSignals();
    execv(arguments[0], arguments);
    _exit(127);
}

Detached startChild(const std::vector<std::string>& commandLine, const fs::path& log, bool detached)
{
    auto pipe = makePipe();
    const FileDescriptor err(open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!err) throwErrno("Could not write", log);
    const auto arguments = argumentsOf(commandLine); // before fork(): afterwards nothing may be allocated
    const pid_t child = fork();
    if (child < 0) throwErrno("Could not start", commandLine.front());
    if (child == 0) become(arguments.data(), pipe.writer.get(), err.get(), detached);
    return {child, std::move(pipe.reader)};
}

bool isProgram(const fs::path& file)
{
    return fs::is_regular_file(file) && access(file.c_str(), X_OK) == 0;
}

bool waitUntilGone(pid_t pid, std::chrono::milliseconds limit)
{
    // A descriptor of the process wakes at its end, and goes on meaning it when its number is used again.
    const FileDescriptor handle(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!handle) return true; // gone already
    pollfd waiting{handle.get(), POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(limit.count())) > 0;
}

} // namespace

fs::path find(const std::string& program)
{
    // Beside this program first: what was built or installed together belongs together.
    std::error_code ignored;
    std::stringstream folders(fs::read_symlink("/proc/self/exe", ignored).parent_path().string() + ":" +
                              environmentVariable("PATH"));
    for (std::string folder; std::getline(folders, folder, ':');)
        if (fs::path(folder).is_absolute() && isProgram(fs::path(folder) / program))
            return fs::path(folder) / program;
    return {};
}

Finished run(const std::vector<std::string>& commandLine, const fs::path& log)
{
    const auto child = startChild(commandLine, log, false);
    Finished finished;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(child.out.get(), buffer, sizeof buffer)) != 0) {
        if (count < 0 && errno != EINTR) break;
        if (count > 0) finished.out.append(buffer, static_cast<std::size_t>(count));
    }
    int status = 0;
    while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) finished.exitCode = WEXITSTATUS(status);
    return finished;
}

int runAtTerminal(const std::vector<std::string>& commandLine)
{
    const auto arguments = argumentsOf(commandLine);
    auto* const interrupt = std::signal(SIGINT, SIG_IGN);
    auto* const quit = std::signal(SIGQUIT, SIG_IGN);
    const pid_t child = fork();
    if (child == 0) {
        restoreSignals();
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    std::signal(SIGINT, interrupt);
    std::signal(SIGQUIT, quit);
    if (child < 0) throwErrno("Could not start", commandLine.front());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Detached startDetached(const std::vector<std::string>& commandLine, const fs::path& log)
{
    return startChild(commandLine, log, true);
}

std::string readLine(const FileDescriptor& stream, std::chrono::seconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::string line;
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd waiting{stream.get(), POLLIN, 0};
        char c = 0;
        if (left <= 0ms || poll(&waiting, 1, static_cast<int>(left.count())) == 0) return {};
        if (read(stream.get(), &c, 1) <= 0) return {}; // byte by byte: what follows the line stays unread
        if (c == '\n') return line;
        line += c;
    }
}

void end(pid_t pid, std::chrono::seconds limit)
{
    kill(pid, SIGTERM);
    if (!waitUntilGone(pid, limit)) {
        kill(pid, SIGKILL);
        waitUntilGone(pid, 5s);
    }
    waitpid(pid, nullptr, WNOHANG); // when this process started it
}

} // namespace tarncli::process
