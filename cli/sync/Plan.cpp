#include "cli/sync/Plan.h"

#include "cli/remote/StoredNames.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli {

using nlohmann::json;

namespace {

constexpr int formatVersion = 1;

struct KindName {
    StepKind kind;
    const char* name;
};

constexpr KindName kindNames[] = {
    {StepKind::makeFolder, "makeFolder"},     {StepKind::create, "create"},
    {StepKind::replace, "replace"},           {StepKind::remove, "delete"},
    {StepKind::removeFolder, "deleteFolder"}, {StepKind::note, "note"},
};

const char* nameOf(StepKind kind)
{
    return std::ranges::find(kindNames, kind, &KindName::kind)->name;
}

StepKind kindFrom(const std::string& name)
{
    const auto* found = std::ranges::find_if(kindNames, [&](const auto& each) { return each.name == name; });
    if (found == std::end(kindNames))
        throw std::invalid_argument("There is no step \"" + escaped(name) + "\".");
    return found->kind;
}

json toJson(const std::optional<FileState>& state)
{
    if (!state) return nullptr;
    json document{{"size", state->size}, {"modified", state->modified}};
    if (!state->watermark.empty()) document["watermark"] = state->watermark;
    return document;
}

std::optional<FileState> stateFrom(const json& document)
{
    if (document.is_null()) return {};
    return FileState{document.at("size"), document.at("modified"), document.value("watermark", "")};
}

void requireUtf8(const char* what, const std::string& text)
{
    if (!isValidUtf8(text))
        throw usageError(std::string("A plan cannot hold ") + what + " " + escaped(text) +
                         ", which is not valid UTF-8; `tarn sync` without --plan can.");
}

/// It becomes a path on both sides, and came from outside.
std::string checkedPlace(const std::string& place, bool mayBeTop)
{
    if (place.empty() && mayBeTop) return place;
    RemotePath::parse("/" + place);
    if (const auto why = whyNotAddressable(encodedName(place));
        !why.empty() || place.ends_with('/') || place.empty())
        throw std::invalid_argument("The path \"" + escaped(place) + "\" cannot be used. " + why);
    return place;
}

} // namespace

std::uint64_t Plan::removals() const
{
    return static_cast<std::uint64_t>(std::ranges::count_if(steps, [](const auto& step) {
        return step.kind == StepKind::remove || step.kind == StepKind::removeFolder;
    }));
}

bool Plan::isEmpty() const
{
    return std::ranges::all_of(steps, [](const auto& step) { return step.kind == StepKind::note; });
}

std::string tableOf(const Plan& plan)
{
    Table table({Table::Align::left, Table::Align::right, Table::Align::left});
    for (const auto& step : plan.steps) {
        if (step.kind == StepKind::note) continue;
        const bool isFolder = step.kind == StepKind::makeFolder || step.kind == StepKind::removeFolder;
        const bool isRemoval = step.kind == StepKind::remove || step.kind == StepKind::removeFolder;
        table.add({isRemoval  ? "delete"
                   : isFolder ? "make"
                              : nameOf(step.kind),
                   step.source ? humanSize(step.source->size) : "", step.place + (isFolder ? "/" : "")});
    }
    for (const auto& conflict : plan.conflicts)
        table.add({"conflict", "", conflict.place + ": " + conflict.reason});
    return table.text();
}

json toJson(const Plan& plan)
{
    auto rules = json::array();
    for (const auto& rule : plan.filter.rules())
        rules.push_back({{rule.includes ? "include" : "exclude", rule.pattern}});
    auto steps = json::array();
    for (const auto& step : plan.steps) {
        steps.push_back({{"do", nameOf(step.kind)},
                         {"path", step.place},
                         {"source", toJson(step.source)},
                         {"target", toJson(step.target)}});
        if (!step.sha256.empty()) steps.back()["sha256"] = step.sha256;
    }
    auto conflicts = json::array();
    for (const auto& conflict : plan.conflicts)
        conflicts.push_back({{"path", conflict.place}, {"reason", conflict.reason}});
    auto leftOut = json::array();
    for (const auto& one : plan.leftOut)
        leftOut.push_back({{"path", one.place}, {"reason", one.reason}});
    return {{"tarnPlan", formatVersion},
            {"service", plan.pair.service},
            {"user", plan.pair.user},
            {"local", plan.pair.local.string()},
            {"remote", plan.pair.remote.text()},
            {"direction", plan.direction == Direction::up ? "up" : "down"},
            {"newVersions", plan.keepsVersions},
            {"encodedNames", namesAreEncoded()},
            {"rules", rules},
            {"onlyIncluded", plan.filter.onlyIncludes()},
            {"steps", steps},
            {"conflicts", conflicts},
            {"leftOut", leftOut},
            {"unchanged", plan.unchanged}};
}

std::string textOf(const Plan& plan)
{
    requireUtf8("the local folder", plan.pair.local.string());
    for (const auto& rule : plan.filter.rules())
        requireUtf8("the pattern", rule.pattern);
    // What is left out is only told.
    return toJson(plan).dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

Plan planFrom(const std::string& text, const std::string& shownName)
{
    try {
        const auto document = json::parse(text);
        if (!document.contains("tarnPlan")) throw std::invalid_argument("It has no \"tarnPlan\".");
        if (document.at("tarnPlan") != formatVersion)
            throw std::invalid_argument("Another version of tarn has written it.");
        encodeNames(document.value("encodedNames", false));
        Plan plan;
        plan.pair = {document.at("service"), document.at("user"), document.at("local").get<std::string>(),
                     addressable(document.at("remote"))};
        plan.direction = document.at("direction") == "up" ? Direction::up : Direction::down;
        plan.keepsVersions = document.at("newVersions");
        std::vector<Filter::Rule> rules;
        for (const auto& rule : document.at("rules")) {
            const bool includes = rule.contains("include");
            rules.push_back({rule.at(includes ? "include" : "exclude"), includes});
        }
        plan.filter = Filter(std::move(rules), document.at("onlyIncluded"));
        for (const auto& step : document.at("steps")) {
            const auto kind = kindFrom(step.at("do"));
            plan.steps.push_back({kind, checkedPlace(step.at("path"), kind == StepKind::makeFolder),
                                  stateFrom(step.at("source")), stateFrom(step.at("target")),
                                  step.value("sha256", "")});
        }
        plan.unchanged = document.value("unchanged", std::uint64_t{0});
        return plan;
    } catch (const std::exception& error) {
        throw usageError(shownName + " is not a plan of `tarn sync`: " + escaped(error.what()));
    }
}

} // namespace tarncli
