#include "cli/sync/SyncSummary.h"

#include "cli/terminal/Output.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

std::string targetOf(const Plan& plan)
{
    return plan.direction == Direction::up ? plan.pair.remote.text() : plan.pair.local.string();
}

bool helpsForce(const Plan& plan)
{
    return std::ranges::any_of(plan.conflicts, &Plan::Conflict::yieldsToForce);
}

/// What is to be told as the failure of the command, and nothing else came of it.
bool isWholeOutcome(const Plan& plan, const TransferReport& report)
{
    const auto failures = std::ranges::count_if(plan.leftOut, &Side::LeftOut::isFailure);
    return failures == 1 && plan.conflicts.empty() && report.failed.empty() && report.done == 0 &&
           report.notStarted == 0;
}

/// Each reason once, however many items it is about.
void tellLeftOut(Output& out, const Plan& plan, bool withFailures = true)
{
    std::map<std::string, std::vector<std::string>> byReason;
    for (const auto& one : plan.leftOut)
        if (withFailures || !one.isFailure) byReason[one.reason].push_back(one.place);
    for (const auto& [reason, places] : byReason) {
        const auto shown = escaped(places.front());
        out.warning(places.size() == 1 ? "Left out " + shown + ": " + reason
                                       : "Left out " + counted(places.size(), "item") + ", the first " +
                                             shown + ": " + reason);
    }
}

void tellDone(Output& out, const Plan& plan, const SyncReport& report)
{
    const auto where = "\"" + escaped(targetOf(plan)) + "\"";
    const auto same = counted(plan.unchanged, "file") + (plan.unchanged == 1 ? " is" : " are") + " the same";
    std::string text;
    if (report.files + report.folders > 0) {
        text = std::string(plan.direction == Direction::up ? "Stored " : "Fetched ") +
               counted(report.files, "file");
        if (report.folders > 0) text += " and " + counted(report.folders, "folder");
        text += " (" + humanSize(report.bytes) + ") in " + where;
        if (report.deleted > 0) text += ", deleted " + std::to_string(report.deleted);
    } else if (report.deleted > 0) {
        text = "Deleted " + std::to_string(report.deleted) + " in " + where;
    } else {
        if (!report.transfers.failed.empty() || report.transfers.notStarted > 0) return;
        return out.message("Nothing to do in " + where + ": " + same + ".");
    }
    out.message(text + "; " + same + ".");
}

/// @param leftOutTold  people know of it
void addFailures(Output& out, const Plan& plan, TransferReport& report, bool leftOutTold)
{
    const auto isFailure = [](const auto& one) { return one.isFailure; };
    const bool isAlone =
        report.failed.empty() &&
        plan.conflicts.size() + static_cast<std::size_t>(std::ranges::count_if(plan.leftOut, isFailure)) == 1;
    for (const auto& conflict : plan.conflicts) {
        const Failure failure(ExitCode::conflict,
                              escaped(conflict.place) + ": " + conflict.reason + "; left as it is.");
        if (!isAlone) out.warning(failure.what());
        report.failed.push_back({conflict.place, failure, !isAlone});
    }
    if (helpsForce(plan))
        out.message("With --force, sync takes the source's file where there is a conflict.");
    for (const auto& one : plan.leftOut)
        if (one.isFailure)
            report.failed.push_back(
                {one.place, Failure(ExitCode::failure, escaped(one.place) + " was left out: " + one.reason),
                 leftOutTold});
}

} // namespace

void showPlan(Output& out, const Plan& plan)
{
    out.result(tableOf(plan), toJson(plan));
    tellLeftOut(out, plan);
    const auto notes = static_cast<std::size_t>(std::ranges::count(plan.steps, StepKind::note, &Step::kind));
    out.message(counted(plan.steps.size() - notes, "step") + " to do in \"" + escaped(targetOf(plan)) +
                "\", " + counted(plan.conflicts.size(), "conflict") + "; " + counted(plan.unchanged, "file") +
                (plan.unchanged == 1 ? " is" : " are") + " the same.");
    if (!plan.conflicts.empty())
        throw Failure(ExitCode::conflict,
                      counted(plan.conflicts.size(), "conflict") + " would be left as " +
                          (plan.conflicts.size() == 1 ? "it is" : "they are") +
                          (helpsForce(plan) ? "; --force takes the source's file." : "."));
}

void showOutcome(Output& out, const Plan& plan, SyncReport report)
{
    const bool tellsAll = !isWholeOutcome(plan, report.transfers);
    tellLeftOut(out, plan, tellsAll);
    addFailures(out, plan, report.transfers, tellsAll);
    tellDone(out, plan, report);
    auto skipped = nlohmann::json::array();
    for (const auto& one : plan.leftOut)
        if (!one.isFailure) skipped.push_back(one.place);
    out.result("", {{"files", report.files},
                    {"folders", report.folders},
                    {"bytes", report.bytes},
                    {"deleted", report.deleted},
                    {"unchanged", plan.unchanged},
                    {"target", targetOf(plan)},
                    {"skipped", skipped},
                    {"failed", toJson(report.transfers.failed)},
                    {"notTried", report.transfers.notStarted}});
    conclude(report.transfers, plan.direction == Direction::up ? "stored" : "fetched");
}

} // namespace tarncli
