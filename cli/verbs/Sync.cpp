#include "cli/machine/FileText.h"
#include "cli/machine/PrivateFile.h"
#include "cli/remote/StoredNames.h"
#include "cli/sync/Planner.h"
#include "cli/sync/SyncSummary.h"
#include "cli/terminal/Quantities.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

namespace fs = std::filesystem;

constexpr unsigned noLimit = 1'000'000'000;

struct Options {
    std::string source;
    std::string target;
    std::vector<Filter::Rule> rules; ///< of the command line, in order
    bool removes = false;
    unsigned mostRemovals = noLimit;
    bool dryRun = false;
    std::string planFile;
    bool force = false;
    bool newVersions = false;
    unsigned jobs = 0; ///< 0: not told
};

/// Written with its user: nothing else can be meant.
bool namesUser(const std::string& place)
{
    const auto colon = place.find(':');
    return colon != std::string::npos && colon > 0 && colon < place.find('/') &&
           place.compare(colon, 2, ":/") == 0;
}

bool isSourceRemote(const Options& options)
{
    const auto mayBe = [](const std::string& place) { return place.starts_with('/') || namesUser(place); };
    const bool source = mayBe(options.source);
    const bool target = mayBe(options.target);
    if (source != target) return source;
    if (!source)
        throw usageError("One of the two must be in the service; its path begins with '/', as in "
                         "`tarn sync photos /photos`.");
    if (namesUser(options.source) != namesUser(options.target)) return namesUser(options.source);
    throw usageError("Both " + escaped(options.source) + " and " + escaped(options.target) +
                     " begin with '/'; write the one in the service with its user, as in alice:/photos.");
}

/// The two folders: `photos` goes below the target, the contents of `photos/` become those of the target.
Pair pairOf(const Connection& connection, const Options& options, bool isUp)
{
    const fs::path here = isUp ? options.source : options.target;
    auto there = addressable(isUp ? options.target : options.source);
    auto local = fs::absolute(here).lexically_normal();
    if (!local.has_filename() && local.has_relative_path()) local = local.parent_path();
    if (isUp) {
        const auto name = here.filename().string();
        if (!name.empty() && name != "." && name != "..") {
            if (const auto why = whyNotStorable(encodedName(name)); !why.empty())
                throw usageError("\"" + escaped(name) + "\" cannot be stored under its name: " + why);
            there = there.child(encodedName(name));
        }
    } else if (!there.asFolder && !there.isRoot()) {
        local /= decodedName(there.name());
    }
    there.asFolder = false;
    if (there.bucket.empty()) there.bucket = connection.user();
    // So that it is the same pair whichever way it is named.
    std::error_code error;
    const auto canonical = fs::weakly_canonical(local, error);
    return {connection.isLocal() ? "local" : connection.url(), connection.user(), error ? local : canonical,
            there};
}

/// What it protects must not be deleted because it could not be read.
std::string ignoreRulesOf(const fs::path& local)
{
    const auto file = local / ignoreFileName;
    std::error_code error;
    if (fs::symlink_status(file, error).type() == fs::file_type::not_found) return {};
    if (const auto status = fs::status(file, error); fs::exists(status) && !fs::is_regular_file(status))
        throw Failure(ExitCode::conflict,
                      escaped(file.string()) + " is no file, and its patterns are needed; nothing was done.");
    return readFile(file);
}

Filter filterFor(const Options& options, const fs::path& local)
{
    auto rules = rulesIn(ignoreRulesOf(local));
    rules.insert(rules.end(), options.rules.begin(), options.rules.end());
    return Filter(std::move(rules), !options.rules.empty() && options.rules.front().includes);
}

void requireSource(const Plan& plan, const Side& local, const Side& remote)
{
    const bool isUp = plan.direction == Direction::up;
    if ((isUp ? local : remote).exists) return;
    throw Failure(ExitCode::notFound,
                  isUp ? "There is no local folder " + escaped(plan.pair.local.string()) + "."
                       : "There is no folder " + plan.pair.remote.quoted() + ".");
}

void synchronise(const Invocation& invocation, const Options& options)
{
    auto& out = invocation.out;
    const bool isUp = !isSourceRemote(options);
    addressable(isUp ? options.target : options.source);
    if (isUp && !fs::is_directory(options.source))
        throw Failure(ExitCode::notFound, "There is no local folder " + escaped(options.source) + ".");
    auto connection = invocation.connect(options.jobs);
    Plan base;
    base.pair = pairOf(connection, options, isUp);
    base.direction = isUp ? Direction::up : Direction::down;
    base.keepsVersions = options.newVersions;
    base.filter = filterFor(options, base.pair.local);
    Journal journal(base.pair);
    const auto local = lookAt(base.pair.local, base.filter);
    const auto remote = lookAt(connection, out, base.pair.remote, base.filter);
    requireSource(base, local, remote);
    const auto plan = makePlan(connection, out, std::move(base), local, remote, journal,
                               {.removes = options.removes, .overwrites = options.force});
    if (plan.removals() > options.mostRemovals)
        throw Failure(ExitCode::failure, std::to_string(plan.removals()) +
                                             " files and folders would be deleted, more than --max-delete " +
                                             std::to_string(options.mostRemovals) + "; nothing was done.");
    if (!options.planFile.empty()) {
        writePrivateFile(fs::weakly_canonical(fs::absolute(options.planFile)), textOf(plan));
        out.message("Wrote the plan; `tarn apply " + escaped(options.planFile) + "` does it.");
    }
    if (options.dryRun || !options.planFile.empty()) return showPlan(out, plan);
    journal.keepOnly(local, remote);
    auto report = Execution(connection, out, plan, journal).run();
    showOutcome(out, plan, std::move(report));
}

} // namespace

Verb sync()
{
    const auto options = std::make_shared<Options>();
    const auto rule = [options](bool includes) {
        return [options, includes](const std::string& pattern) {
            options->rules.push_back({pattern, includes});
        };
    };
    return {.name = "sync",
            .summary = "Make a folder like another, one of them here and one in the service",
            .examples = "  tarn sync photos /                   the folder: becomes /photos\n"
                        "  tarn sync photos/ /album             its contents: become those of /album\n"
                        "  tarn sync /album/ copy               from the service\n"
                        "  tarn sync --delete --max-delete 50 photos /\n"
                        "  tarn sync --exclude '*.tmp' --exclude cache/ photos /\n"
                        "  tarn sync --plan plan.json photos /  then: tarn apply plan.json",
            .notes = "The path in the service begins with '/'; when both do, write it with its user, as in"
                     " alice:/album. What is the same is left alone, without a request for each file. A "
                     "file of the target is replaced or deleted only when it is as an earlier run has left"
                     " it; one that has changed since, or is different on the first run, is a conflict: it"
                     " is told, left as it is, and the exit code is 6, or 8 when others were dealt with.\n"
                     "Patterns, also those in the local folder's .tarnignore (one a line, '#' begins a "
                     "comment, '!' includes again): without '/' a name anywhere, with '/' a place below "
                     "the folder; '/' at the end for folders only; * ? [..] within a name, ** for any "
                     "folders. The last that matches counts, the command line's after those of the file; "
                     "what is in a folder that is left out is left out. When the first on the command line"
                     " is --include, only what is included counts.\n"
                     "Symbolic links are not followed.",
            .takes = {{"SOURCE",
                       &options->source,
                       "Folder; with '/' at the end its contents",
                       {.required = true, .words = Words::either}},
                      {"TARGET",
                       &options->target,
                       "Where it goes; made when it is missing",
                       {.required = true, .words = Words::either}},
                      {"-n,--dry-run", &options->dryRun, "Only tell what would be done"},
                      {"--plan",
                       &options->planFile,
                       "Write what would be done into a file, for `tarn apply`",
                       {.valueName = "FILE", .words = Words::local}},
                      {"--delete", &options->removes, "Delete what the target has beyond the source"},
                      {"--max-delete",
                       &options->mostRemovals,
                       "Do nothing at all when more files and folders than that would be deleted",
                       {.valueName = "N", .most = noLimit, .least = 0}},
                      {"--exclude", rule(false), "Leave out what matches", {.valueName = "PATTERN"}},
                      {"--include", rule(true), "Include it all the same", {.valueName = "PATTERN"}},
                      {"-f,--force", &options->force, "Take the source's file where there is a conflict"},
                      {"--new-version", &options->newVersions,
                       "Keep what is replaced in the service as an earlier version"},
                      jobsOption(options->jobs)},
            .run = [options](const Invocation& invocation) { synchronise(invocation, *options); }};
}

} // namespace tarncli::verbs
