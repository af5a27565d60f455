#include "tarnd/http/FaultScript.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

namespace tarnd {

/// What the client library calls a request, and how it is recognised.
struct Operation {
    std::string_view name;
    std::string_view method;
    std::string_view path;
    std::string_view inQuery = {};
};

namespace {

constexpr Operation operations[] = {
    {"login", "GET", "/service/v1/login"},
    {"logout", "GET", "/service/v1/logout"},
    {"ping", "GET", "/service/v1/ping"},
    {"createFile", "PUT", "/service/v1/files", "createMode=CREATE"},
    {"updateFile", "PUT", "/service/v1/files", "createMode=UPDATE"},
    {"readFile", "GET", "/service/v1/files"},
    {"deleteFile", "DELETE", "/service/v1/files"},
    {"readFileAttributes", "GET", "/service/v1/filesystem"},
    {"move", "PUT", "/service/v1/filesystem"},
    {"createFileHandle", "PUT", "/service/v1/filehandle"},
    {"closeFileHandle", "DELETE", "/service/v1/filehandle"},
    {"createFolder", "PUT", "/service/v1/folders"},
    {"listFolder", "GET", "/service/v1/folders"},
    {"deleteFolder", "DELETE", "/service/v1/folders"},
    {"listSharedContent", "GET", "/service/v1/sharedcontent"},
    {"getPublicAccessUrl", "GET", "/service/v1/public/urls"},
    {"createPublicLink", "PUT", "/service/v1/public/links"},
    {"listPublicLinks", "GET", "/service/v1/public/links"},
    {"revokePublicLink", "DELETE", "/service/v1/public/links"},
    {"openPublicLink", "GET", "/public"},
    {"grantPermission", "PUT", "/service/v1/permissions"},
    {"revokePermission", "DELETE", "/service/v1/permissions"},
    {"listPermissions", "GET", "/service/v1/permissions"},
    {"listVersions", "GET", "/service/v1/versions/files"},
    {"restoreVersion", "PUT", "/service/v1/versions/files"},
};

bool isOf(const Operation& operation, std::string_view method, std::string_view target)
{
    const auto path = target.substr(0, target.find('?'));
    const bool fits =
        path == operation.path || (path.starts_with(operation.path) && path[operation.path.size()] == '/');
    return fits && method == operation.method && target.find(operation.inQuery) != target.npos;
}

[[noreturn]] void refuse(const std::string& what)
{
    throw std::invalid_argument(what);
}

std::uint64_t numberIn(std::string_view text, const char* of)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        refuse("\"" + std::string(text) + "\" is no " + of + ".");
    return number;
}

std::chrono::milliseconds timeIn(std::string_view text)
{
    const bool inMilliseconds = text.ends_with("ms");
    const auto unit = inMilliseconds ? 2 : text.ends_with("s") ? 1 : 0;
    if (unit == 0) refuse("\"" + std::string(text) + "\" is no time: 200ms, or 2s.");
    const auto number = numberIn(text.substr(0, text.size() - static_cast<std::size_t>(unit)), "time");
    return std::chrono::milliseconds(number * (inMilliseconds ? 1 : 1000));
}

const Operation* operationNamed(std::string_view name)
{
    if (name == "any") return nullptr;
    const auto* const found = std::find_if(std::begin(operations), std::end(operations),
                                           [&](const Operation& each) { return each.name == name; });
    if (found != std::end(operations)) return found;
    std::string known = "any";
    for (const auto& each : operations)
        known.append(", ").append(each.name);
    refuse("\"" + std::string(name) + "\" is no operation: " + known + ".");
}

Fault faultNamed(const std::string& name, const std::string& amount)
{
    if (name == "drop") return {Fault::Kind::drop};
    if (name == "lose") return {Fault::Kind::lose};
    if (name == "wait") return {Fault::Kind::wait, 0, timeIn(amount)};
    if (name == "cut") return {Fault::Kind::cut, numberIn(amount, "number of bytes")};
    if (name != "refuse")
        refuse("\"" + name + "\" is no fault: wait TIME, refuse STATUS, drop, lose, cut BYTES.");
    const auto status = numberIn(amount, "status");
    if (status < 400 || status > 599) refuse("a refusal has a status from 400 to 599.");
    return {Fault::Kind::refuse, status};
}

} // namespace

FaultScript::Line FaultScript::parse(std::string_view text)
{
    std::istringstream in{std::string(text)};
    std::string operation, when, what, amount, more;
    Line line;
    in >> operation >> when;
    if (when == "every") {
        in >> when;
        line.number = numberIn(when, "number of requests");
    } else if (when.starts_with('#')) {
        line.when = Line::When::nth;
        line.number = numberIn(std::string_view(when).substr(1), "number of a request");
    } else if (when.ends_with('%')) {
        line.when = Line::When::chance;
        line.number = numberIn(std::string_view(when).substr(0, when.size() - 1), "percentage");
        if (line.number > 100) refuse(when + " is more than always.");
    } else if (when != "always") {
        refuse("\"" + when + "\" is no moment: always, #2, every 3, 5%.");
    }
    if (line.number == 0) refuse((line.when == Line::When::every ? "every 0" : when) + " is never.");
    in >> what >> amount >> more;
    if (!more.empty()) refuse("\"" + more + "\" is one word too many.");
    line.text = text;
    line.operation = operationNamed(operation);
    line.fault = faultNamed(what, amount);
    return line;
}

FaultScript::FaultScript(std::string_view text) : chosenSeed(std::random_device()())
{
    std::istringstream in{std::string(text)};
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        line.erase(std::min(line.size(), line.find(';')));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        line.erase(0, line.find_first_not_of(" \t"));
        if (line.empty()) continue;
        try {
            if (line.starts_with("seed "))
                chosenSeed = static_cast<std::uint32_t>(numberIn(std::string_view(line).substr(5), "seed"));
            else
                lines.push_back(parse(line));
        } catch (const std::invalid_argument& error) {
            refuse("line " + std::to_string(number) + ": " + error.what());
        }
    }
    random.seed(chosenSeed);
}

bool FaultScript::strikes(Line& line)
{
    ++line.seen;
    switch (line.when) {
    case Line::When::nth:
        return line.seen == line.number;
    case Line::When::every:
        return line.seen % line.number == 0;
    case Line::When::chance:
        break;
    }
    return random() % 100 < line.number;
}

std::optional<Fault> FaultScript::next(std::string_view method, std::string_view target)
{
    const std::lock_guard lock(mutex);
    std::optional<Fault> fault;
    for (auto& line : lines) {
        if (line.operation && !isOf(*line.operation, method, target)) continue;
        if (!strikes(line) || fault) continue;
        fault = line.fault;
        line.fired = true;
    }
    return fault;
}

std::vector<std::string> FaultScript::unfired() const
{
    const std::lock_guard lock(mutex);
    std::vector<std::string> rest;
    for (const auto& line : lines)
        if (!line.fired) rest.push_back(line.text);
    return rest;
}

} // namespace tarnd
