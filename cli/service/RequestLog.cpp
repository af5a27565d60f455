#include "cli/service/RequestLog.h"

#include "cli/machine/FileDescriptor.h"
#include "cli/machine/PrivateFile.h"
#include "cli/machine/SystemError.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Text.h"
#include "tarnhost/LogObserver.h"
#include "tarnhost/RecordingObserver.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>

namespace tarncli {

namespace {

using namespace connector::host;

/// "2026-05-01T12:00:00.123Z"
std::string timestamp()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::time_t seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(now).count() % 1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char date[32], text[48];
    std::strftime(date, sizeof date, "%FT%T", &utc);
    std::snprintf(text, sizeof text, "%s.%03dZ", date, static_cast<int>(rest));
    return text;
}

std::shared_ptr<RequestObserver> logInto(const std::string& file, Output& output)
{
    const auto fd = std::make_shared<FileDescriptor>(
        ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
    if (!*fd) throwErrno("Could not write the log", file);
    const auto complained = std::make_shared<std::atomic<bool>>(false);
    const auto write = [=, &output, process = std::to_string(::getpid())](const std::string& line) {
        const auto text = timestamp() + " " + process + " " + escaped(line) + "\n";
        // In one call, so that the lines of several commands do not mix.
        const auto count = ::write(fd->get(), text.data(), text.size());
        if (count != static_cast<ssize_t>(text.size()) && !complained->exchange(true))
            output.warning("The log " + escaped(file) + " is not complete: a line could not be written.");
    };
    return std::make_shared<LogObserver>(write, LogObserver::Detail::tries);
}

/// As the recording is written, beside it first: what is there already stays until something fails.
void requireWritable(const std::string& file)
{
    requireReplaceable(file);
    auto temporary = file + ".XXXXXX";
    const FileDescriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));
    if (fd) ::unlink(temporary.c_str());
    const bool isFolder = std::filesystem::is_directory(file);
    if (isFolder) errno = EISDIR;
    if (!fd || isFolder) throwErrno("Could not write the recording", file);
}

} // namespace

std::vector<std::shared_ptr<RequestObserver>> requestObservers(const RequestLogOptions& options,
                                                               Output& output)
{
    std::vector<std::shared_ptr<RequestObserver>> observers;
    if (output.showsDetails())
        observers.push_back(std::make_shared<LogObserver>(
            [&output](const std::string& line) { output.detail(escaped(line)); }));
    if (!options.logFile.empty()) observers.push_back(logInto(options.logFile, output));
    if (!options.recordFile.empty()) {
        requireWritable(options.recordFile);
        // Whoever asks for a recording of one command counts refusals among what fails.
        observers.push_back(std::make_shared<RecordingObserver>(
            RecordingObserver::Options{.file = options.recordFile, .failsFrom = 400}));
    }
    return observers;
}

} // namespace tarncli
