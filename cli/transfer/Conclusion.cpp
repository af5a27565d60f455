#include "cli/transfer/Conclusion.h"

#include "cli/terminal/Output.h"
#include "cli/terminal/Quantities.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace tarncli {

void addTo(TransferReport& report, TransferReport&& more)
{
    report.done += more.done;
    report.notStarted += more.notStarted;
    report.failed.insert(report.failed.end(), std::make_move_iterator(more.failed.begin()),
                         std::make_move_iterator(more.failed.end()));
}

nlohmann::json toJson(const std::vector<TransferReport::Failed>& failed)
{
    auto result = nlohmann::json::array();
    for (const auto& one : failed)
        result.push_back({{"item", one.what},
                          {"error", one.failure.what()},
                          {"kind", one.failure.kind()},
                          {"code", static_cast<int>(one.failure.code())}});
    return result;
}

TransferReport forEach(Output& out, const std::vector<std::string>& items,
                       const std::function<void(const std::string&)>& action)
{
    TransferReport report;
    for (std::size_t i = 0; i < items.size(); ++i) {
        try {
            action(items[i]);
            ++report.done;
        } catch (const std::exception&) {
            const auto failure = explain(std::current_exception());
            if (items.size() > 1) out.warning(failure.what());
            report.failed.push_back({items[i], failure, items.size() > 1});
            // Each further item would wait for the same silence.
            if (failure.code() != ExitCode::unreachable && failure.kind() != std::string_view("unavailable"))
                continue;
            report.notStarted = items.size() - i - 1;
            break;
        }
    }
    return report;
}

TransferReport forEachItem(Connection& connection, Output& out, const std::vector<std::string>& paths,
                           bool missingIsFine, const std::function<void(const RemoteItem&)>& action)
{
    std::vector<RemoteItem> items;
    auto report = forEach(out, paths, [&](const std::string& path) {
        try {
            std::ranges::move(expand(connection, path), std::back_inserter(items));
        } catch (const Failure& failure) {
            if (!missingIsFine || failure.code() != ExitCode::notFound) throw;
        }
    });
    report.done = 0;
    if (report.notStarted > 0) {
        report.notStarted += items.size();
        return report;
    }
    std::vector<std::string> names;
    for (const auto& item : items)
        names.push_back(item.where.text());
    auto next = items.begin();
    addTo(report, forEach(out, names, [&](const std::string&) { action(*next++); }));
    return report;
}

void conclude(const TransferReport& report, const std::string& verb)
{
    if (report.failed.empty() && report.notStarted == 0) return;
    const auto& first = report.failed.front();
    if (report.done == 0 && report.failed.size() == 1 && report.notStarted == 0 && !first.told)
        throw first.failure;
    const auto code = report.done > 0 ? ExitCode::partlyDone : first.failure.code();
    std::string text;
    // One that came alone was left to be told here, with what came of the rest.
    for (const auto& one : report.failed)
        if (!one.told) text += std::string(one.failure.what()) + " ";
    text += counted(report.failed.size(), "item") + " could not be " + verb;
    if (report.notStarted > 0)
        text +=
            ", and " + std::to_string(report.notStarted) + " " + wasOrWere(report.notStarted) + " not tried";
    throw Failure(code, text + "; " + std::to_string(report.done) + " " + wasOrWere(report.done) + ".");
}

} // namespace tarncli
