#include "cli/sync/Journal.h"

#include "cli/machine/FileLock.h"
#include "cli/machine/PrivateFile.h"
#include "cli/machine/SystemError.h"
#include "cli/machine/UserFolders.h"
#include "cli/remote/StoredNames.h"
#include "cli/terminal/Text.h"

#include <chrono>
#include <fcntl.h>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using nlohmann::json;

constexpr auto coarsestClock = std::chrono::seconds(2);

std::string lineOf(const json& document)
{
    return document.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

/// An absolute path as JSON can hold it: different ones stay different.
std::string writable(const std::string& path)
{
    return isValidUtf8(path) ? path : "escaped:" + escaped(path);
}

json toJson(const std::string& place, const Journal::Entry& entry)
{
    return {{"path", place},
            {"size", entry.size},
            {"modified", entry.modified},
            {"watermark", entry.watermark},
            {"sha256", entry.sha256}};
}

} // namespace

bool Pair::operator==(const Pair& other) const
{
    return differenceFrom(other).empty();
}

RemotePath Pair::remoteAt(const std::string& place) const
{
    return place.empty() ? remote : remote.child(encodedName(place));
}

std::string Pair::differenceFrom(const Pair& other) const
{
    const auto told = [](const char* what, const std::string& one, const std::string& another) {
        return std::string(what) + " " + escaped(one) + " rather than " + escaped(another);
    };
    if (service != other.service) return told("the service", service, other.service);
    if (user != other.user) return told("the user", user, other.user);
    if (local != other.local) return told("the local folder", local, other.local);
    if (remote.text() != other.remote.text())
        return told("the remote folder", remote.text(), other.remote.text());
    return {};
}

Journal::Journal(const Pair& syncedPair)
    : pair(syncedPair)
    , file(folders::state() / "sync" / (privateFileName(headerLine()) + ".jsonl"))
    , lock(lockFile(file.string() + ".lock"))
{
    load();
}

std::string Journal::headerLine() const
{
    return lineOf({{"service", pair.service},
                   {"user", pair.user},
                   {"local", writable(pair.local.string())},
                   {"remote", pair.remote.text()}});
}

/// The last line may be torn: a process may end at any moment.
void Journal::load()
{
    const auto read = readPrivateFile(file);
    if (!read || !read->starts_with(headerLine())) return;
    std::size_t lines = 0;
    for (auto at = headerLine().size(); at < read->size(); ++lines) {
        const auto next = read->find('\n', at);
        if (next == std::string::npos) break;
        const auto line = json::parse(read->begin() + static_cast<std::ptrdiff_t>(at),
                                      read->begin() + static_cast<std::ptrdiff_t>(next), nullptr, false);
        at = next + 1;
        try {
            entries[line.at("path")] = {line.at("size"), line.at("modified"), line.at("watermark"),
                                        line.at("sha256")};
        } catch (const json::exception&) { // whatever it was about is asked for
        }
    }
    changed = lines != entries.size() || !read->ends_with('\n');
}

const Journal::Entry* Journal::find(const std::string& place) const
{
    const auto found = entries.find(place);
    return found == entries.end() ? nullptr : &found->second;
}

void Journal::note(const std::string& place, const Entry& entry)
{
    auto& known = entries[place];
    if (known == entry) return;
    known = entry;
    if (!end) {
        changed = true;
        save(); // with this entry
        end = FileDescriptor(::open(file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
        if (!end) throwErrno("Could not write", file);
    } else {
        const auto line = lineOf(toJson(place, entry));
        if (::write(end.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            throwErrno("Could not write", file);
    }
    changed = true;
}

void Journal::forget(const std::string& place)
{
    if (entries.erase(place) > 0) changed = true;
}

void Journal::keepOnly(const Side& one, const Side& other)
{
    const auto isUnseen = [&](const std::string& place) {
        return anyUpwards(
            place, [&](const std::string& above) { return one.isUnseen(above) || other.isUnseen(above); });
    };
    if (std::erase_if(entries, [&](const auto& entry) {
            const auto& place = entry.first;
            return !one.hasFile(place) && !other.hasFile(place) && !isUnseen(place);
        }) > 0)
        changed = true;
}

void Journal::save()
{
    if (!changed) return;
    auto text = headerLine();
    for (const auto& [place, entry] : entries)
        text += lineOf(toJson(place, entry));
    writePrivateFile(file, text);
    end.reset(); // it was of the file that has just been replaced
    changed = false;
}

std::int64_t Journal::trusted(std::int64_t modified)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto limit = std::chrono::duration_cast<std::chrono::nanoseconds>(now - coarsestClock).count();
    return modified < limit ? modified : 0;
}

} // namespace tarncli
