#include "cli/terminal/Output.h"

#include "cli/terminal/TerminalSize.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <unistd.h>

namespace tarncli {

namespace {

std::string dumped(const nlohmann::json& document)
{
    // Names need not be valid UTF-8, and a document without them is better than none.
    return document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

/// As programs in a pipe end: silently, and with the status that the shell knows.
[[noreturn]] void endByBrokenPipe()
{
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
    _exit(128 + SIGPIPE);
}

} // namespace

Output::Output(Format chosenFormat, Verbosity chosen)
    : format(chosenFormat)
    , verbosity(chosen)
    , bar(chosenFormat == Format::text && chosen != Verbosity::quiet && isatty(STDERR_FILENO) != 0
              ? STDERR_FILENO
              : -1)
{
}

std::optional<int> Output::columns() const
{
    return terminalColumns(STDOUT_FILENO);
}

void Output::data(std::string_view bytes)
{
    bar.erase();
    while (!bytes.empty()) {
        const auto count = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN) { // another program that shares it has told it not to wait
            pollfd room{STDOUT_FILENO, POLLOUT, 0};
            ::poll(&room, 1, -1);
            continue;
        }
        if (count < 0 && errno == EPIPE) endByBrokenPipe();
        if (count < 0)
            throw Failure(ExitCode::failure,
                          std::string("Could not write to standard output: ") + std::strerror(errno) + ".");
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void Output::result(const std::string& text, const nlohmann::json& document)
{
    data(isJson() ? dumped(document) : text);
}

void Output::line(const nlohmann::json& item)
{
    data(dumped(item));
}

void Output::list(const std::string& text, const char* key, const nlohmann::json& items, nlohmann::json rest)
{
    if (isLines()) {
        for (const auto& item : items)
            line(item);
        if (rest.contains("failed"))
            for (const auto& item : rest["failed"])
                line(item);
        return;
    }
    rest[key] = items;
    result(text, rest);
}

void Output::list(const std::string& text, const char* key, const nlohmann::json& items)
{
    list(text, key, items, nlohmann::json::object());
}

void Output::message(const std::string& text)
{
    if (!isJson() && verbosity != Verbosity::quiet) say(text);
}

void Output::detail(const std::string& text)
{
    if (showsDetails()) say(text);
}

void Output::warning(const std::string& text)
{
    if (!isJson()) say(text);
}

void Output::error(const Failure& failure)
{
    if (!isJson()) return say(failure.what());
    bar.erase();
    const auto line = dumped(
        {{"error", failure.what()}, {"kind", failure.kind()}, {"code", static_cast<int>(failure.code())}});
    std::fputs(line.c_str(), stderr);
}

void Output::say(const std::string& text)
{
    bar.erase();
    std::fputs(("tarn: " + text + "\n").c_str(), stderr);
}

} // namespace tarncli
