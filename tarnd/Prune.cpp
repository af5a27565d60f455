#include "tarnd/Prune.h"

#include "tarnd/ServeFlags.h"
#include "tarnd/http/LogFile.h"
#include "tarnd/http/LogLine.h"

#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace tarnd {

namespace {

/// "90d", "12h", "2w" as milliseconds; 0 for what is none.
std::int64_t millisecondsIn(const std::string& text)
{
    constexpr std::int64_t hour = 3'600'000, most = 100 * 365 * 24;
    std::int64_t number = 0;
    const auto* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || end - stopped != 1) return 0;
    const auto hours = *stopped == 'h' ? 1 : *stopped == 'd' ? 24 : *stopped == 'w' ? 24 * 7 : 0;
    return hours > 0 && number > 0 && number <= most / hours ? number * hours * hour : 0;
}

CLI::Validator asAge()
{
    return {[](std::string& text) {
                const auto age = millisecondsIn(text);
                auto refusal = age > 0 ? "" : "'" + text + "' is not an age, such as 12h, 90d or 8w";
                if (age > 0) text = std::to_string(age);
                return refusal;
            },
            ""};
}

} // namespace

Prune::Prune(CLI::App& app)
    : command(app.add_subcommand("prune",
                                 "Delete old versions, never the current one; works beside a running "
                                 "service"))
{
    addStoreOptions(*command, store);
    auto* rule = command->add_option_group("Which", "With both, those that are old in both respects");
    rule->require_option(1, 2);
    rule->add_option("--keep", keep, "All but the N newest of each file")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{1'000'000'000}))
        ->type_name("N");
    rule->add_option("--older-than", age, "Those stored longer ago than this, such as 12h, 90d or 8w")
        ->transform(asAge())
        ->type_name("AGE");
    command->add_option("--user", user, "Of this user's files only")->type_name("NAME");
    command->add_flag("-n,--dry-run", dryRun, "Only say what would go");
    command
        ->add_option("--audit-log", auditLogFile,
                     "Add a line for each user to this file, as tarnd serve does")
        ->type_name("FILE");
}

bool Prune::run()
{
    if (!*command) return false;
    std::optional<LogFile> audit;
    if (!auditLogFile.empty() && !dryRun) audit.emplace(auditLogFile);
    Store opened(store, Purpose::administer);
    PruneRule rule{.keep = keep};
    if (age > 0) rule.before = store.clock() - age;
    PruneReport all;
    for (const auto& report : opened.versions().prune(rule, user, dryRun)) {
        std::printf("%-24s %10jd versions %15jd bytes\n", report.user.c_str(), std::intmax_t{report.versions},
                    std::intmax_t{report.bytes});
        all.versions += report.versions;
        all.bytes += report.bytes;
        if (audit)
            audit->write(nlohmann::ordered_json{{"time", utcNow()},
                                                {"event", "prune"},
                                                {"user", report.user},
                                                {"versions", report.versions},
                                                {"bytes", report.bytes}}
                             .dump());
    }
    std::printf("%s %jd versions of %jd bytes.\n", dryRun ? "Would delete" : "Deleted",
                std::intmax_t{all.versions}, std::intmax_t{all.bytes});
    return true;
}

} // namespace tarnd
