#include "cli/machine/FileText.h"
#include "cli/sync/AsPlanned.h"
#include "cli/sync/SyncSummary.h"
#include "cli/verbs/Verb.h"

#include <filesystem>

namespace tarncli::verbs {

namespace {

struct Options {
    std::string file;
    unsigned jobs = 0; ///< 0: not told
};

Plan readPlan(const std::string& file)
{
    if (!std::filesystem::exists(file))
        throw Failure(ExitCode::notFound, "There is no plan " + escaped(file) + ".");
    return planFrom(readFile(file), escaped(file));
}

void apply(const Invocation& invocation, const Options& options)
{
    auto& out = invocation.out;
    const auto plan = readPlan(options.file);
    auto connection = invocation.connect(options.jobs);
    auto here = plan.pair;
    here.service = connection.isLocal() ? "local" : connection.url();
    here.user = connection.user();
    if (const auto difference = plan.pair.differenceFrom(here); !difference.empty())
        throw Failure(ExitCode::conflict, "The plan is for " + difference + ".");
    Journal journal(plan.pair);
    const auto local = lookAt(plan.pair.local, plan.filter);
    const auto remote = lookAt(connection, out, plan.pair.remote, plan.filter);
    requireAsPlanned(out, plan, local, remote);
    journal.keepOnly(local, remote);
    auto report = Execution(connection, out, plan, journal).run();
    showOutcome(out, plan, std::move(report));
}

} // namespace

Verb apply()
{
    const auto options = std::make_shared<Options>();
    return {.name = "apply",
            .summary = "Do what a plan of `tarn sync --plan` says",
            .examples = "  tarn sync --plan plan.json --delete photos / && tarn apply plan.json",
            .notes = "Does exactly that, or nothing: when a file that the plan deals with has changed "
                     "since on either side, that is told, and nothing is done.",
            .takes = {{"FILE", &options->file, "The plan", {.required = true, .words = Words::local}},
                      jobsOption(options->jobs)},
            .run = [options](const Invocation& invocation) { apply(invocation, *options); }};
}

} // namespace tarncli::verbs
