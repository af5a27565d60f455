#include "cli/sync/Planner.h"

#include "cli/remote/FileContent.h"
#include "cli/terminal/Output.h"
#include "cli/transfer/LocalContent.h"
#include "cli/transfer/Transfers.h"
#include "tarn/transfer/Sha256.h"

#include <algorithm>
#include <iterator>

namespace tarncli {

namespace {

using connector::Future;

/// A file that is on the target, and perhaps on the source, and what has to be known to decide about it.
struct Question {
    std::string place;
    std::optional<FileState> source; ///< nothing: to be deleted
    FileState target;
    const Journal::Entry* known = nullptr;
    bool sourceFits = false; ///< it is the known one
    bool targetFits = false;
    std::string sourceDigest = {};
    std::string targetDigest = {};

    bool needsSource() const
    {
        if (!source || sourceFits) return false;
        return targetFits ? source->size == known->size : source->size == target.size;
    }

    bool needsTarget() const
    {
        if (targetFits) return false;
        return (source && source->size == target.size) || (known != nullptr && known->size == target.size);
    }

    bool isSame() const { return !sourceDigest.empty() && sourceDigest == targetDigest; }

    bool isTargetKnown() const { return known != nullptr && targetDigest == known->sha256; }
};

class Planner {
public:
    Planner(Connection& openConnection, Output& output, Plan base, const Side& localSide,
            const Side& remoteSide, const Journal& known, const PlanOptions& chosen)
        : connection(openConnection)
        , out(output)
        , plan(std::move(base))
        , isUp(plan.direction == Direction::up)
        , source(isUp ? localSide : remoteSide)
        , target(isUp ? remoteSide : localSide)
        , journal(known)
        , options(chosen)
    {
    }

    Plan make()
    {
        for (const auto* side : {&source, &target})
            for (const auto& one : side->leftOut) {
                if (untouched.insert(one.place).second) plan.leftOut.push_back(one);
            }
        if (!target.exists) folders.push_back({StepKind::makeFolder, ""});
        for (const auto& [place, item] : source.items)
            addFromSource(place, item);
        if (options.removes)
            for (const auto& [place, item] : target.items)
                if (!item.isFolder && !source.items.contains(place) && !isUntouched(place))
                    ask(place, {}, item);
        answer();
        for (const auto& question : questions)
            decide(question);
        if (options.removes && !plan.filter.onlyIncludes()) removeFolders();
        assemble();
        return std::move(plan);
    }

private:
    bool isUntouched(const std::string& place) const
    {
        return !untouched.empty() &&
               anyUpwards(place, [&](const std::string& above) { return untouched.contains(above); });
    }

    void conflict(const std::string& place, const std::string& reason, bool yieldsToForce = true)
    {
        plan.conflicts.push_back({place, reason, yieldsToForce});
        untouched.insert(place);
    }

    /// By name: what is in a folder comes behind it.
    void addFromSource(const std::string& place, const Item& item)
    {
        if (isUntouched(place)) return;
        const auto found = target.items.find(place);
        if (found == target.items.end()) {
            if (target.filtered.contains(place)) return; // a folder there, which the filter sees as it is
            if (item.isFolder)
                folders.push_back({StepKind::makeFolder, place});
            else
                files.push_back({StepKind::create, place, item.state});
        } else if (found->second.isFolder != item.isFolder) {
            conflict(place,
                     item.isFolder ? "a folder in the source, a file in the target"
                                   : "a file in the source, a folder in the target",
                     false);
        } else if (!item.isFolder) {
            ask(place, item.state, found->second);
        }
    }

    void ask(const std::string& place, const std::optional<FileState>& from, const Item& to)
    {
        Question question{place, from, to.state, journal.find(place)};
        if (const auto* known = question.known) {
            const auto fits = [&](const FileState& state, bool isLocal) {
                return isLocal ? known->fitsLocal(state) : known->fitsRemote(state);
            };
            question.sourceFits = from && fits(*from, isUp);
            question.targetFits = fits(to.state, !isUp);
            if (question.sourceFits) question.sourceDigest = known->sha256;
            if (question.targetFits) question.targetDigest = known->sha256;
        }
        if (question.sourceFits && question.targetFits)
            ++plan.unchanged;
        else
            questions.push_back(std::move(question));
    }

    /// What states do not tell, digests do: those of stored files one request each, those of local ones read here.
    void answer()
    {
        const auto moved = countFromZero();
        Transfers transfers(connection, out, moved);
        std::uint64_t bytes = 0;
        std::uint64_t count = 0;
        for (auto& question : questions) {
            const bool here = isUp ? question.needsSource() : question.needsTarget();
            const bool there = isUp ? question.needsTarget() : question.needsSource();
            if (!here && !there) continue;
            transfers.add(digestsOf(question, here, there, moved));
            bytes += here ? (isUp ? question.source->size : question.target.size) : 0;
            ++count;
        }
        out.progress().begin("Comparing", bytes, count);
        const auto report = transfers.run();
        out.progress().end();
        if (report.failed.empty()) return;
        const auto& first = report.failed.front().failure;
        if (report.notStarted > 0 || first.code() == ExitCode::unreachable) throw first;
    }

    Transfer digestsOf(Question& question, bool here, bool there, const MovedBytes& moved)
    {
        struct Digests {
            std::string here;
            std::string there;
        };

        auto told = std::make_shared<Digests>();
        Transfer transfer;
        const auto stored = plan.pair.remoteAt(question.place);
        const auto remoteSize = isUp ? question.target.size : question.source ? question.source->size : 0;
        transfer.what = stored.quoted();
        if (here) transfer.bytes = isUp ? question.source->size : question.target.size;
        transfer.start = [this, told, here, there, moved, stored, remoteSize,
                          file = plan.pair.local / question.place] {
            const bool asks = there && remoteSize > 0;
            auto digest = asks ? requestDigest(connection, stored)
                               : connector::makeReadyFuture(there ? connector::tarn::Sha256().hex() : "");
            // Read and hashed where the reply arrives, so that several files are at the same time.
            return digest.then([told, here, moved, file](Future<std::string>&& reply) {
                told->there = reply.get();
                if (here) told->here = LocalContent::ofFile(file, Symlinks::refuse).sha256(moved);
                return true;
            });
        };
        transfer.succeeded = [this, told, here, there, &question] {
            if (here) (isUp ? question.sourceDigest : question.targetDigest) = told->here;
            if (there) (isUp ? question.targetDigest : question.sourceDigest) = told->there;
        };
        transfer.failed = [this, &question](const std::exception_ptr& error) {
            plan.leftOut.push_back({question.place, explain(error).what(), true});
            untouched.insert(question.place);
        };
        return transfer;
    }

    void decide(const Question& question)
    {
        const auto& place = question.place;
        if (untouched.contains(place)) return;
        if (!question.source) {
            if (question.known != nullptr && !question.isTargetKnown() && !options.overwrites)
                return conflict(place, "gone from the source, and changed in the target");
            removals.push_back({StepKind::remove, place, {}, question.target});
            return;
        }
        if (question.isSame()) {
            ++plan.unchanged;
            notes.push_back({StepKind::note, place, question.source, question.target, question.sourceDigest});
        } else if (question.isTargetKnown() || options.overwrites) {
            files.push_back({StepKind::replace, place, question.source, question.target});
        } else {
            conflict(place, reasonOf(question));
        }
    }

    static const char* reasonOf(const Question& question)
    {
        if (question.known == nullptr) return "different on both sides";
        const bool sourceChanged =
            question.source->size != question.known->size ||
            (!question.sourceDigest.empty() && question.sourceDigest != question.known->sha256);
        return sourceChanged ? "changed on both sides" : "changed in the target";
    }

    /// The deepest first, and none in which something stays.
    void removeFolders()
    {
        std::set<std::string> stays;
        const auto keep = [&](const std::string& place) {
            anyUpwards(place, [&](const std::string& above) { return !stays.insert(above).second; });
        };
        std::set<std::string> removed;
        for (const auto& step : removals)
            removed.insert(step.place);
        for (const auto& place : target.filtered)
            keep(place);
        for (const auto& place : untouched)
            keep(place);
        for (const auto& [place, item] : target.items)
            if (item.isFolder ? source.items.contains(place) || isUntouched(place) : !removed.contains(place))
                keep(place);
        for (auto item = target.items.rbegin(); item != target.items.rend(); ++item)
            if (item->second.isFolder && !stays.contains(item->first))
                removals.push_back({StepKind::removeFolder, item->first});
    }

    void assemble()
    {
        // A folder is wanted for the files in it, when files are all that was asked for.
        if (plan.filter.onlyIncludes()) {
            std::set<std::string> needed{""};
            for (const auto& step : files)
                anyUpwards(placeAbove(step.place),
                           [&](const std::string& above) { return !needed.insert(above).second; });
            std::erase_if(folders, [&](const auto& step) { return !needed.contains(step.place); });
        }
        std::ranges::sort(files, {}, &Step::place);
        for (auto* steps : {&notes, &folders, &files, &removals})
            std::ranges::move(*steps, std::back_inserter(plan.steps));
    }

    Connection& connection;
    Output& out;
    Plan plan;
    const bool isUp;
    const Side& source;
    const Side& target;
    const Journal& journal;
    PlanOptions options;
    std::set<std::string> untouched; ///< with all below
    std::vector<Question> questions;
    std::vector<Step> notes, folders, files, removals;
};

} // namespace

Plan makePlan(Connection& connection, Output& out, Plan base, const Side& local, const Side& remote,
              const Journal& journal, const PlanOptions& options)
{
    return Planner(connection, out, std::move(base), local, remote, journal, options).make();
}

} // namespace tarncli
