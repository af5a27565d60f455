#include "cli/service/ChangeLog.h"

#include "cli/machine/PrivateFile.h"
#include "cli/machine/SystemError.h"
#include "cli/machine/UserFolders.h"
#include "cli/terminal/Failure.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

namespace tarncli {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::size_t commandsKept = 20;

constexpr std::pair<const char*, Change::Kind> kinds[] = {
    {"createFile", Change::Kind::createFile},
    {"addVersion", Change::Kind::addVersion},
    {"replaceContent", Change::Kind::replaceContent},
    {"makeFolder", Change::Kind::makeFolder},
    {"move", Change::Kind::move},
    {"remove", Change::Kind::remove},
    {"grant", Change::Kind::grant},
    {"revoke", Change::Kind::revoke},
    {"restore", Change::Kind::restore},
};

constexpr std::pair<const char*, std::string Change::*> textFields[] = {
    {"path", &Change::path},        {"target", &Change::target},     {"before", &Change::before},
    {"file", &Change::localOrigin}, {"item", &Change::remoteOrigin}, {"after", &Change::after},
};

json toJson(const Change& change)
{
    json line;
    for (const auto& [name, kind] : kinds)
        if (kind == change.kind) line["do"] = name;
    for (const auto& [name, member] : textFields)
        if (!(change.*member).empty()) line[name] = change.*member;
    if (change.size != 0) line["size"] = change.size;
    if (change.modified != 0) line["modified"] = change.modified;
    if (change.loses) line["loses"] = true;
    return line;
}

Change changeFrom(const json& line)
{
    const auto* named = std::ranges::find(kinds, line.at("do").get<std::string>(),
                                          [](const auto& each) { return each.first; });
    if (named == std::end(kinds)) throw std::invalid_argument("kind");
    Change change{named->second, ""};
    for (const auto& [name, member] : textFields)
        change.*member = line.value(name, "");
    change.size = line.value("size", std::uint64_t{0});
    change.modified = line.value("modified", std::int64_t{0});
    change.loses = line.value("loses", false);
    return change;
}

std::string lineOf(const json& document)
{
    return document.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

fs::path folderFor(const std::string& service, const std::string& user)
{
    return folders::state() / "undo" / privateFileName(service + " " + user);
}

/// By their times, the newest last.
std::vector<fs::path> filesIn(const fs::path& folder)
{
    std::vector<fs::path> files;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder, none))
        files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

std::uint64_t milliseconds()
{
    using namespace std::chrono;
    return static_cast<std::uint64_t>(
        duration_cast<std::chrono::milliseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace

void ChangeLog::open()
{
    const auto folder = folderFor(service, user);
    makePrivateFolder(folder);
    auto old = filesIn(folder);
    std::error_code ignored;
    for (std::size_t i = 0; i + commandsKept <= old.size(); ++i)
        fs::remove(old[i], ignored);
    const auto now = milliseconds();
    // Behind all that are there, also when the clock was set back.
    auto name = std::to_string(now);
    if (!old.empty() && old.back().stem().string() >= name)
        name = std::to_string(std::stoull(old.back().stem().string()) + 1);
    path = folder / (name + ".jsonl");
    file = FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
    if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) throwErrno("Could not write", path);
    write(lineOf({{"command", command}, {"when", now}}));
}

void ChangeLog::write(const std::string& line)
{
    // Not synced: what a killed command has written stays, and a power loss is no reason to undo.
    if (!file || ::write(file.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size())) return;
    file.reset();
    isBroken = true;
    // What is known in part would be undone in part.
    ::unlink(path.c_str());
}

std::size_t ChangeLog::begin(const Change& change)
{
    try {
        if (!file && !isBroken) open();
    } catch (const std::exception&) { // a home that cannot be written to is no reason to store nothing
        isBroken = true;
        file.reset();
    }
    auto line = toJson(change);
    line["n"] = count;
    write(lineOf(line));
    return count++;
}

void ChangeLog::done(std::size_t number, const std::string& after)
{
    write(lineOf({{"n", number}, {"done", true}, {"after", after}}));
}

void ChangeLog::notDone(std::size_t number)
{
    write(lineOf({{"n", number}, {"done", false}}));
}

namespace {

/// The last line may be torn: a process may end at any moment.
LoggedCommand read(const fs::path& file)
{
    LoggedCommand command;
    command.file = file;
    FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) command.lock = std::move(fd);
    std::map<std::size_t, Change> changes;
    const auto text = readPrivateFile(file).value_or("");
    for (std::size_t at = 0, next = 0; (next = text.find('\n', at)) != std::string::npos; at = next + 1) {
        const auto line = json::parse(text.substr(at, next - at), nullptr, false);
        try {
            if (at == 0) {
                command.text = line.at("command");
                command.when = line.at("when");
            } else if (!line.contains("done")) {
                changes.emplace(line.at("n").get<std::size_t>(), changeFrom(line));
            } else if (line.at("done") == true) {
                auto& change = changes.at(line.at("n").get<std::size_t>());
                change.isDone = true;
                change.after = line.at("after");
            } else {
                changes.erase(line.at("n").get<std::size_t>());
            }
        } catch (const std::exception&) { // written by another version: what is not understood is not undone
        }
    }
    for (auto& [number, change] : changes)
        command.changes.push_back(std::move(change));
    return command;
}

} // namespace

void LoggedCommand::forget() const
{
    std::error_code ignored;
    fs::remove(file, ignored);
}

std::vector<LoggedCommand> loggedCommands(const std::string& service, const std::string& user)
{
    std::vector<LoggedCommand> commands;
    auto files = filesIn(folderFor(service, user));
    for (auto file = files.rbegin(); file != files.rend(); ++file)
        if (auto command = read(*file); !command.changes.empty()) commands.push_back(std::move(command));
    return commands;
}

} // namespace tarncli
