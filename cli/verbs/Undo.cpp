#include "cli/undo/Undoing.h"

#include "cli/terminal/Quantities.h"
#include "cli/terminal/Question.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"
#include "cli/transfer/Conclusion.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using nlohmann::json;

struct Options {
    bool list = false;
    bool dryRun = false;
    bool yes = false;
    bool forget = false;
};

/// "`tarn put a /b`"
std::string named(const LoggedCommand& command)
{
    return "`tarn " + escaped(command.text) + "`";
}

void listCommands(Output& out, const std::vector<LoggedCommand>& commands)
{
    using enum Table::Align;
    Table table({left, right, left}, {"WHEN", "CHANGES", "COMMAND"});
    auto documents = json::array();
    for (const auto& command : commands) {
        const bool isRunning = !command.lock;
        table.add({humanTime(command.when), std::to_string(command.changes.size()),
                   "tarn " + command.text + (isRunning ? " (at work)" : "")});
        documents.push_back({{"command", command.text},
                             {"when", command.when},
                             {"changes", command.changes.size()},
                             {"running", isRunning}});
    }
    out.list(table.text(), "commands", documents);
}

json documentOf(const LoggedCommand& command, const UndoPlan& plan, const TransferReport& report, bool isDone)
{
    json document{{"command", command.text}, {"when", command.when},  {"done", isDone},
                  {"steps", json::array()},  {"lost", json::array()}, {"failed", toJson(report.failed)}};
    for (const auto& step : plan.steps)
        document["steps"].push_back({{"do", step.what}, {"path", step.path}, {"detail", step.detail}});
    for (const auto& [path, text] : plan.lost)
        document["lost"].push_back({{"path", path}, {"reason", text}});
    return document;
}

/// What will be done, and what cannot be.
void show(Output& out, const LoggedCommand& command, const UndoPlan& plan)
{
    if (plan.steps.empty() && plan.lost.empty())
        return out.message("Nothing of " + named(command) + " is left to take back.");
    out.message("To take back " + named(command) + " of " + humanTime(command.when) + ":");
    using enum Table::Align;
    Table table({left, left, left});
    for (const auto& step : plan.steps)
        table.add({step.what, step.path, step.detail});
    if (!out.isJson()) out.data(table.text());
    for (const auto& [path, text] : plan.lost)
        out.warning("Cannot be taken back: \"" + escaped(path) + "\" " + text + ".");
}

void requireAsLeft(const LoggedCommand& command, const UndoPlan& plan)
{
    constexpr std::size_t most = 10;
    if (plan.differences.empty()) return;
    std::string told;
    for (std::size_t i = 0; i < std::min(plan.differences.size(), most); ++i)
        told +=
            (i == 0 ? "\"" : ", \"") + escaped(plan.differences[i].path) + "\" " + plan.differences[i].text;
    if (plan.differences.size() > most)
        told += " and " + std::to_string(plan.differences.size() - most) + " more";
    throw Failure(ExitCode::conflict, "It is not as " + named(command) + " left it: " + told +
                                          ". Nothing was done; `tarn undo --forget` leaves it so.");
}

void takeBackLast(const Invocation& invocation, Connection& connection, const LoggedCommand& command,
                  const Options& options)
{
    auto& out = invocation.out;
    if (!command.lock) throw Failure(ExitCode::conflict, named(command) + " is still at work.");
    const auto plan = planUndo(connection, out, command);
    requireAsLeft(command, plan);
    if (plan.steps.empty() && !plan.lost.empty() && !options.dryRun)
        throw Failure(ExitCode::failure,
                      named(command) + " cannot be taken back: \"" + escaped(plan.lost.front().path) + "\" " +
                          plan.lost.front().text + ". `tarn undo --forget` goes on to the one before.");
    show(out, command, plan);
    if (options.dryRun) return out.result("", documentOf(command, plan, {}, false));
    if (!plan.steps.empty() && !options.yes &&
        !isConfirmed("Take it back?", "Nothing was done; `tarn undo --yes` does it without asking."))
        return out.message("Nothing was done.");
    const auto report = takeBack(connection, out, plan);
    const bool isWhole = report.failed.empty() && report.notStarted == 0;
    if (isWhole) {
        command.forget();
        if (!plan.steps.empty()) out.message("Took back " + named(command) + ".");
    }
    out.result("", documentOf(command, plan, report, isWhole));
    conclude(report, "taken back");
    if (!plan.lost.empty())
        throw Failure(ExitCode::partlyDone, counted(plan.lost.size(), "item") + " could not be taken back; " +
                                                std::to_string(plan.steps.size()) +
                                                (plan.steps.size() == 1 ? " was." : " were."));
}

void undoLast(const Invocation& invocation, const Options& options)
{
    auto connection = invocation.connect();
    const auto commands = connection.commands();
    if (options.list) return listCommands(invocation.out, commands);
    if (commands.empty())
        throw Failure(ExitCode::notFound, "There is no command of yours here that could be taken back.");
    const auto& last = commands.front();
    if (!options.forget) return takeBackLast(invocation, connection, last, options);
    last.forget();
    invocation.out.message("Forgot " + named(last) + "; what it did stays.");
    invocation.out.result("", documentOf(last, {}, {}, false));
}

} // namespace

Verb undo()
{
    const auto options = std::make_shared<Options>();
    return {.name = "undo",
            .summary = "Take back what the last command did",
            .examples = "  tarn undo -n                         what it would do\n"
                        "  tarn undo --yes                      without asking\n"
                        "  tarn undo --list                     what can be taken back, the last first",
            .notes = "Takes back the last put, cp, mv, rm --keep, mkdir, edit, restore, grant, revoke, "
                     "sync or apply of this user on this machine, and the next time the one before. It "
                     "does nothing when something is not as the command left it, and says before what "
                     "nothing keeps: files that were deleted, and contents that were replaced without "
                     "--new-version. Versions that were added stay in the list. A command that was killed "
                     "can be taken back, too.",
            .takes = {{"-n,--dry-run", &options->dryRun, "Only tell what would be done"},
                      {"-y,--yes", &options->yes, "Do not ask"},
                      {"--list", &options->list, "List the commands that can be taken back"},
                      {"--forget", &options->forget, "Leave what the last command did, and forget it"}},
            .run = [options](const Invocation& invocation) { undoLast(invocation, *options); }};
}

} // namespace tarncli::verbs
