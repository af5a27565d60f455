#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Comparison.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/IncomingFile.h"
#include "cli/transfer/RemoteWalk.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using namespace connector::tarn;
namespace fs = std::filesystem;

struct CheckOptions {
    std::string local;
    std::string remote;
    unsigned jobs = 0; ///< 0: not told
};

/// What one folder and its counterpart differ in, as it is found.
class Check {
public:
    Check(Connection& openConnection, Output& output, fs::path localRoot, RemotePath remoteRoot)
        : connection(openConnection)
        , out(output)
        , local(std::move(localRoot))
        , remote(std::move(remoteRoot))
        , walk(
              connection, out, [this](RemoteWalk::Folder& folder) { compareFolder(folder); },
              [this](const RemotePath& where, int) { return isFolderHere(where); })
    {
    }

    TransferReport folders()
    {
        walk.add(remote);
        auto report = walk.run();
        std::ranges::move(unreadable, std::back_inserter(report.failed));
        return report;
    }

    TransferReport files(std::uint64_t remoteSize)
    {
        std::error_code error;
        const auto size = fs::file_size(local, error);
        Transfers transfers(connection, out);
        if (error || size != remoteSize)
            differs("different", local.filename().string());
        else
            transfers.add(comparison(local, remote, size, local.filename().string()));
        return transfers.run();
    }

    void conclude(const TransferReport& report)
    {
        if (links > 0)
            out.warning(counted(links, "symbolic link") + " " + wasOrWere(links) + " not followed.");
        if (others > 0)
            out.warning(counted(others, "item") + (others == 1 ? ", which is" : ", which are") +
                        " neither file nor folder, " + wasOrWere(others) + " not compared.");
        nlohmann::json document{{"same", same}, {"failed", toJson(report.failed)}};
        std::uint64_t differences = 0;
        std::string each;
        for (const auto* verdict : {"missing", "extra", "different"}) {
            document[verdict] = found[verdict];
            differences += found[verdict].size();
            if (!found[verdict].empty())
                each += (each.empty() ? "" : ", ") + std::to_string(found[verdict].size()) + " " + verdict;
        }
        if (out.isLines())
            out.list("", "different", nlohmann::json::array(), document);
        else if (out.isJson())
            out.result("", document);
        const auto rest = counted(same, "file") + (same == 1 ? " is" : " are") + " the same";
        if (report.failed.empty() && report.notStarted == 0 && differences == 0)
            return out.message("No differences: " + rest + ".");
        auto told = report;
        told.done = same + differences;
        tarncli::conclude(told, "compared");
        throw Failure(ExitCode::failure, counted(differences, "difference") + " between " +
                                             escaped(local.string()) + " and " + remote.quoted() + " (" +
                                             each + "); " + rest + ".");
    }

private:
    /// Below both roots; empty for the roots.
    std::string below(const RemotePath& where) const
    {
        return where.path.size() <= remote.path.size()
                   ? ""
                   : decodedName(where.path.substr(remote.path.size() + !remote.isRoot()));
    }

    bool isFolderHere(const RemotePath& where) const
    {
        std::error_code error;
        return fs::is_directory(fs::symlink_status(local / below(where), error));
    }

    /// Part of a file that is being fetched, or was.
    static bool isOwn(const std::string& name, fs::file_type type)
    {
        return type == fs::file_type::regular && isIncoming(name);
    }

    void compareFolder(const RemoteWalk::Folder& folder)
    {
        try {
            compareWithHere(folder);
        } catch (const fs::filesystem_error& error) {
            const auto place = (local / below(folder.where)).string();
            const Failure failure(ExitCode::failure, "It could not be read: " + error.code().message() + ".");
            out.warning(about(escaped(place), failure).what());
            unreadable.push_back({place, about(escaped(place), failure)});
        }
    }

    void compareWithHere(const RemoteWalk::Folder& folder)
    {
        const auto above = below(folder.where);
        std::map<std::string, fs::file_type> here;
        for (const auto& entry : fs::directory_iterator(local / above))
            if (const auto type = entry.symlink_status().type();
                !isOwn(entry.path().filename().string(), type))
                here[entry.path().filename().string()] = type;
        const auto place = [&](const std::string& name) { return above.empty() ? name : above + "/" + name; };
        for (const auto& file : folder.listing->files) {
            const auto stored = toUtf8(file.name);
            const auto name = decodedName(stored);
            const auto own = here.extract(name);
            if (own.empty())
                differs("extra", place(name));
            else if (own.mapped() != fs::file_type::regular ||
                     fs::file_size(local / place(name)) != file.size)
                differs("different", place(name));
            else
                walk.addFirst(
                    comparison(local / place(name), folder.where.child(stored), file.size, place(name)));
        }
        for (const auto& child : folder.listing->folders) {
            const auto name = decodedName(toUtf8(child.name));
            const auto own = here.extract(name);
            if (own.empty() || own.mapped() != fs::file_type::directory)
                differs(own.empty() ? "extra" : "different", place(name) + "/");
        }
        for (const auto& [name, type] : here) {
            const bool isFolder = type == fs::file_type::directory;
            if (isFolder || type == fs::file_type::regular)
                differs("missing", place(name) + (isFolder ? "/" : ""));
            else
                ++(type == fs::file_type::symlink ? links : others);
        }
    }

    Transfer comparison(const fs::path& file, const RemotePath& where, std::uint64_t size,
                        const std::string& name)
    {
        const auto open = [file] { return LocalContent::ofFile(file, Symlinks::follow); };
        return compare(connection, {where.quoted(), open, where, {}, size}, countFromZero(),
                       [this, name](const Compared& both) {
                           if (both.isSame)
                               ++same;
                           else
                               differs("different", name);
                       });
    }

    void differs(const std::string& verdict, const std::string& name)
    {
        if (out.isLines()) out.line({{"difference", verdict}, {"path", name}});
        if (!out.isJson()) out.data(verdict + std::string(11 - verdict.size(), ' ') + escaped(name) + "\n");
        found[verdict].push_back(name);
    }

    Connection& connection;
    Output& out;
    fs::path local;
    RemotePath remote;
    RemoteWalk walk;
    std::uint64_t same = 0;
    std::uint64_t links = 0;
    std::uint64_t others = 0;
    std::map<std::string, std::vector<std::string>> found;
    std::vector<TransferReport::Failed> unreadable;
};

void check(const Invocation& invocation, const CheckOptions& options)
{
    const auto where = addressable(options.remote);
    const bool isFolderHere = fs::is_directory(options.local);
    if (!isFolderHere && !fs::is_regular_file(options.local))
        throw Failure(ExitCode::notFound, "There is no local file or folder " + escaped(options.local) + ".");
    auto connection = invocation.connect(options.jobs);
    const auto attributes = attributesOf(connection, where);
    if (isFolder(attributes) != isFolderHere)
        throw Failure(ExitCode::conflict, escaped(options.local) + " and " + where.quoted() +
                                              " cannot be compared: one is a folder, the other a file.");
    Check work(connection, invocation.out, options.local, where);
    invocation.out.progress().begin("Comparing");
    const auto report = isFolderHere ? work.folders() : work.files(attributes.size);
    invocation.out.progress().end();
    work.conclude(report);
}

} // namespace

namespace verbs {

Verb check()
{
    const auto options = std::make_shared<CheckOptions>();
    return {.name = "check",
            .summary = "Compare local files with stored ones",
            .examples = "  tarn check photos /photos\n"
                        "  tarn check notes.md /notes.md",
            .notes = "Files count as the same when they have the same SHA-256, which the service tells: "
                     "nothing is fetched. \"missing\" is what is here only, \"extra\" what is stored only. "
                     "Exit code 0 when there is no difference, 1 when there is one, 8 when not everything "
                     "could be compared.",
            .takes = {{"LOCAL", &options->local, "File or folder", {.required = true, .words = Words::local}},
                      {"REMOTE",
                       &options->remote,
                       "What it is compared with",
                       {.required = true, .words = Words::remote}},
                      jobsOption(options->jobs)},
            .run = [options](const Invocation& invocation) { check(invocation, *options); }};
}

} // namespace verbs

} // namespace tarncli
