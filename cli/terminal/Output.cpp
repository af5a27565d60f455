#include "cli/terminal/Output.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
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

Output::Output(bool asJson, Verbosity chosen)
    : json(asJson)
    , verbosity(chosen)
    , bar(!asJson && chosen != Verbosity::quiet && isatty(STDERR_FILENO) != 0 ? STDERR_FILENO : -1)
{
}

void Output::data(std::string_view bytes)
{
    bar.erase();
    while (!bytes.empty()) {
        const auto count = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EPIPE) endByBrokenPipe();
        if (count < 0)
            throw Failure(ExitCode::failure,
                          std::string("Could not write to standard output: ") + std::strerror(errno) + ".");
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void Output::result(const std::string& text, const nlohmann::json& document)
{
    data(json ? dumped(document) : text);
}

void Output::message(const std::string& text)
{
    if (!json && verbosity != Verbosity::quiet) say(text);
}

void Output::detail(const std::string& text)
{
    if (showsDetails()) say(text);
}

void Output::warning(const std::string& text)
{
    if (!json) say(text);
}

void Output::error(const Failure& failure)
{
    if (!json) return say(failure.what());
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
