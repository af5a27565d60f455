#include "cli/remote/Requests.h"
#include "cli/service/Endpoint.h"
#include "cli/service/LocalStore.h"
#include "cli/service/Probe.h"
#include "cli/service/ReplyCheck.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using namespace std::chrono_literals;
using Clock = std::chrono::system_clock;

constexpr auto probeLimit = 10s;
constexpr auto certificateWarning = std::chrono::hours(24 * 21); ///< before its end
constexpr auto clockWarning = 30s;
constexpr std::uint64_t spaceWarning = 100u << 20; ///< bytes free
constexpr std::size_t trialBytes = 4096;

struct DoctorOptions {
    std::string path = "/";
    bool readOnly = false;
};

std::string inMilliseconds(std::chrono::duration<double, std::milli> took)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", took.count());
    return text;
}

/// A URL without user and password: what is printed here is made to be shown to others.
std::string withoutUser(const std::string& url)
{
    const auto scheme = url.find("://");
    const auto begin = scheme == std::string::npos ? 0 : scheme + 3;
    const auto at = url.rfind('@');
    return at == std::string::npos || at < begin ? url : url.substr(0, begin) + url.substr(at + 1);
}

/// Of the end of a certificate, in words.
std::string untilText(Clock::time_point ends, Clock::time_point now)
{
    const auto days = std::chrono::duration_cast<std::chrono::hours>(ends - now).count() / 24;
    const auto at = static_cast<std::uint64_t>(std::max<std::int64_t>(
        0, std::chrono::duration_cast<std::chrono::milliseconds>(ends.time_since_epoch()).count()));
    return "until " + humanTime(at) +
           (ends < now ? " (it has ended)"
                       : " (" + counted(static_cast<std::uint64_t>(days), "day") + " left)");
}

/// What is looked at, line by line. The first failure ends it, since what follows needs what has failed.
class Examination {
public:
    Examination(const Invocation& call, DoctorOptions chosen) : invocation(call), options(std::move(chosen))
    {
    }

    void run()
    {
        try {
            examine();
        } catch (const std::exception&) {
            const auto failure = explain(std::current_exception());
            if (!firstFailure) fail(current, failure);
        }
        invocation.out.result(table.text(invocation.out.columns()),
                              {{"service", endpoint}, {"checks", checks}});
        if (!firstFailure)
            return invocation.out.message(warnings == 0 ? "All is well."
                                                        : "It works; see the warnings above.");
        throw *firstFailure;
    }

private:
    void examine()
    {
        current = "service";
        auto service = serviceFor(invocation.connection.service);
        Connection connection(invocation.connection, invocation.out); // starts the local store
        endpoint = connection.url();
        pass(service.isLocal()
                 ? "the local store at " + endpoint
                 : endpoint + " (" + service.endpointFrom + ")" +
                       (service.proxy.empty() ? "" : ", by way of the proxy " + withoutUser(service.proxy)));
        if (!reaches(service)) return;
        examineAccess(connection);
        if (service.isLocal()) examineSpace();
    }

    bool reaches(const Service& service)
    {
        const auto found = probe(service, endpoint, probeLimit);
        const auto via = service.proxy.empty() ? hostOf(endpoint) : "the proxy";
        using enum Probe::Step;
        current = "name";
        if (found.reached == lookup)
            return unreachable(
                found,
                "Check how the endpoint is spelled, and that this machine can look up names: `getent hosts " +
                    hostOf(endpoint) + "`.");
        if (!found.address.empty())
            pass(via + " is " + found.address + " (" + inMilliseconds(found.lookup) + ")");
        current = "connection";
        if (found.reached == connect)
            return unreachable(found,
                               "Check the port, that the service runs, and what firewalls lie between.");
        pass(via + " accepts connections (" + inMilliseconds(found.connect) + ")");
        if (endpoint.starts_with("https:") && !isTrusted(found)) return false;
        current = "clock";
        if (found.time) compareClocks(*found.time);
        return isTarn(found);
    }

    bool isTrusted(const Probe& found)
    {
        current = "certificate";
        std::string what;
        const auto now = Clock::now();
        if (found.certificate) {
            what = "issued by " + found.certificate->issuer;
            if (found.certificate->ends) what += ", " + untilText(*found.certificate->ends, now);
        }
        if (found.reached == Probe::Step::secure)
            return unreachable(
                found, (what.empty() ? "" : "It was " + what + ". ") +
                           "If you trust the authority that issued it, name its file with --ca-file; if it "
                           "has ended or names another host, whoever runs the service must renew it.");
        if (!found.certificate || !found.certificate->ends ||
            *found.certificate->ends > now + certificateWarning) {
            pass(what + " (" + inMilliseconds(found.secure) + ")");
        } else {
            warn(what, "Whoever runs the service should renew it.");
        }
        return true;
    }

    void compareClocks(Clock::time_point theirs)
    {
        const auto ahead = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - theirs).count();
        const auto off = std::to_string(std::abs(ahead)) + " s";
        if (std::abs(ahead) <= clockWarning.count())
            return pass("within " + std::to_string(std::max(std::abs(ahead), 1L)) + " s of the service's");
        warn("this machine's is " + off + (ahead > 0 ? " ahead of" : " behind") + " the service's",
             "Times of files are told by the service's clock. Set whichever is wrong: `timedatectl` shows "
             "this one.");
    }

    bool isTarn(const Probe& found)
    {
        current = "answer";
        if (found.reached == Probe::Step::answer)
            return unreachable(found, "Something accepts connections there and does not answer; is it the "
                                      "service, and is its port right?");
        if (const auto why = whyNotTarn({found.status, found.contentType, false, found.body}); !why.empty()) {
            fail(current, Failure(ExitCode::failure, escaped(why)));
            return false;
        }
        pass("a Tarn service (" + inMilliseconds(found.answer) + ")");
        return true;
    }

    void examineAccess(Connection& connection)
    {
        current = "login";
        connection.resume();
        connection.call([&] { return connection.session().ping(nullptr); });
        pass("as " + connection.user());

        current = "rights";
        const auto where = RemotePath::parse(options.path);
        const auto attributes = attributesOf(connection, where);
        const bool writable = attributes.writable;
        pass("you may read " + where.quoted() + (writable ? " and write to it" : ", and not write to it"));
        if (!isFolder(attributes) || !writable || options.readOnly) return;
        current = "file";
        tryFile(connection, where.child(trialName()));
    }

    /// Of no other run, and of no file of the user's.
    static std::string trialName()
    {
        std::random_device random;
        return ".tarn-doctor-" + std::to_string(random());
    }

    void tryFile(Connection& connection, const RemotePath& file)
    {
        const auto begin = std::chrono::steady_clock::now();
        const std::string bytes(trialBytes, 't');
        const auto stored = [&] {
            auto request = requestFor<FileCreate>(file);
            request->content = connector::common::DataBuffer(bytes);
            return connection.files().createFile(std::move(request));
        };
        const auto read = [&] { return connection.files().readFile(requestFor<FileRead>(file)); };
        const auto removed = [&] { return connection.files().deleteFile(requestFor<FileDelete>(file)); };
        try {
            naming(file, [&] { return connection.call(stored); });
            // By no digest: that would blame the file, which is what is tried with here.
            const auto back = naming(file, [&] { return connection.call(read); });
            if (back->content.bytes() != bytes)
                throw Failure(ExitCode::failure,
                              file.quoted() + " came back with another content than was stored.");
        } catch (...) {
            try {
                connection.call(removed);
            } catch (const std::exception&) { // the first failure says more, and it may not be there at all
            }
            throw;
        }
        naming(file, [&] { return connection.call(removed); });
        pass(humanSize(trialBytes) + " stored, read and removed in " +
             inMilliseconds(std::chrono::steady_clock::now() - begin));
    }

    void examineSpace()
    {
        current = "space";
        const auto folder = LocalStore().dataFolder();
        const auto free = std::filesystem::space(folder).available;
        const auto text = humanSize(free) + " free in " + folder.string();
        if (free >= spaceWarning) return pass(text);
        warn(text, "Make room there.");
    }

    bool unreachable(const Probe& found, const std::string& remedy)
    {
        fail(current,
             Failure(ExitCode::unreachable,
                     escaped(found.why) + (found.why.ends_with('.') ? " " : ". ") + escaped(remedy)));
        return false;
    }

    void pass(const std::string& found) { add("ok", current, found, ""); }

    void warn(const std::string& found, const std::string& remedy)
    {
        ++warnings;
        add("warning", current, found, remedy);
    }

    void fail(const std::string& name, const Failure& failure)
    {
        firstFailure = failure.saying("The check \"" + name + "\" failed; see above for what to do.");
        add("failed", name, failure.what(), "");
    }

    void add(const char* state, const std::string& name, const std::string& found, const std::string& remedy)
    {
        table.add({state, name, found + (remedy.empty() ? "" : ". " + remedy)});
        nlohmann::json check{{"check", name}, {"state", state}, {"found", found}};
        if (!remedy.empty()) check["remedy"] = remedy;
        checks.push_back(std::move(check));
    }

    const Invocation& invocation;
    const DoctorOptions options;
    std::string endpoint;
    std::string current; ///< the check under way
    Table table{{Table::Align::left, Table::Align::left, Table::Align::prose}};
    nlohmann::json checks = nlohmann::json::array();
    std::optional<Failure> firstFailure;
    unsigned warnings = 0;
};

} // namespace

Verb doctor()
{
    const auto options = std::make_shared<DoctorOptions>();
    return {.name = "doctor",
            .summary = "Find out what keeps the service from working for you",
            .examples = "  tarn doctor\n"
                        "  tarn --profile work doctor /docs",
            .notes = "It looks up the name, connects, looks at the certificate, the clock and the login, "
                     "asks for your rights on PATH and, where you may, stores a small file there and "
                     "removes it again.",
            .takes = {{"PATH", &options->path, "Folder to try; default: /", {.words = Words::remote}},
                      {"--read-only", &options->readOnly, "Do not store a file"}},
            .run = [options](const Invocation& invocation) { Examination(invocation, *options).run(); }};
}

} // namespace tarncli::verbs
