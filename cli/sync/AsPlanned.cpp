#include "cli/sync/AsPlanned.h"

#include "cli/terminal/Failure.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Text.h"

#include <algorithm>

namespace tarncli {

namespace {

constexpr std::size_t differencesTold = 10;

const FileState* stateOf(const Side& side, const std::string& place)
{
    const auto found = side.items.find(place);
    return found == side.items.end() || found->second.isFolder ? nullptr : &found->second.state;
}

bool isAs(const Side& side, const std::string& place, const std::optional<FileState>& planned)
{
    const auto* state = stateOf(side, place);
    return planned ? state != nullptr && *state == *planned : !side.items.contains(place);
}

bool isFolderAt(const Side& side, const std::string& place)
{
    const auto found = side.items.find(place);
    return found != side.items.end() && found->second.isFolder;
}

bool sourceFits(const Step& step, const Side& source)
{
    if (step.kind == StepKind::makeFolder)
        return step.place.empty() ? source.exists : isFolderAt(source, step.place);
    return isAs(source, step.place, step.source);
}

bool targetFits(const Step& step, const Side& target)
{
    if (step.place.empty()) return !target.exists;
    if (step.kind == StepKind::removeFolder) return isFolderAt(target, step.place);
    return isAs(target, step.place, step.target);
}

} // namespace

void requireAsPlanned(Output& out, const Plan& plan, const Side& local, const Side& remote)
{
    const bool isUp = plan.direction == Direction::up;
    std::vector<std::string> differences;
    for (const auto& step : plan.steps) {
        if (!sourceFits(step, isUp ? local : remote))
            differences.push_back(escaped(step.place) + " in the source");
        if (!targetFits(step, isUp ? remote : local))
            differences.push_back((step.place.empty() ? "the folder itself" : escaped(step.place)) +
                                  " in the target");
    }
    if (differences.empty()) return;
    std::string told;
    for (std::size_t i = 0; i < std::min(differences.size(), differencesTold); ++i)
        told += (i == 0 ? "" : ", ") + differences[i];
    if (differences.size() > differencesTold)
        told += " and " + std::to_string(differences.size() - differencesTold) + " more";
    out.detail("Nothing of the plan was done.");
    throw Failure(ExitCode::conflict, "Changed since the plan was made: " + told +
                                          ". Nothing was done; make another plan with `tarn sync --plan`.");
}

} // namespace tarncli
