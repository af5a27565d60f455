#include "tarnd/Administration.h"

#include "tarnd/ServeFlags.h"
#include "tarnd/store/Size.h"
#include "tarnd/store/TimeText.h"

#include <cstdio>

namespace tarnd {

namespace {

/// The token alone goes to standard output, so that a script can take it as it is.
void printToken(const std::string& token)
{
    std::printf("%s\n", token.c_str());
}

void printAccount(const Account& account)
{
    const auto quota = account.quota > 0 ? sizeText(static_cast<std::uint64_t>(account.quota)) : "any";
    std::printf("%-24s %15jd bytes of %-12s since %s%s\n", account.name.c_str(), std::intmax_t{account.used},
                quota.c_str(), timeText(account.created).c_str(), account.disabled ? ", disabled" : "");
}

} // namespace

Administration::Administration(CLI::App& app)
{
    addUser(app);
    addSession(app);
    addLink(app);
}

CLI::App* Administration::add(CLI::App* group, const std::string& command, const std::string& help,
                              Action action, Purpose purpose)
{
    auto* added = group->add_subcommand(command, help);
    addStoreOptions(*added, store);
    commands.push_back({added, std::move(action), purpose});
    return added;
}

void Administration::addUser(CLI::App& app)
{
    auto* group = app.add_subcommand("user", "Manage who may log in; works beside a running service");
    group->require_subcommand(1);
    const auto named = [&](const char* command, const char* help, auto action,
                           Purpose purpose = Purpose::administer) {
        const auto onAccounts = [action](Store& opened) { action(opened.accounts()); };
        auto* added = add(group, command, help, onAccounts, purpose);
        added->add_option("NAME", name, "The user's name")->required();
        return added;
    };
    named(
        "add", "Add a user and print the new token", [this](Accounts& all) { printToken(all.add(name)); },
        Purpose::begin);
    add(group, "list", "Print the names of all users", [this](Store& opened) {
        for (const auto& account : opened.accounts().list())
            longList ? printAccount(account) : printToken(account.name);
    })->add_flag("-l,--long", longList, "Also what they store, what they may, and since when they are there");
    named("rotate", "Replace a user's token and print the new one",
          [this](Accounts& all) { printToken(all.rotate(name)); });
    named("disable", "End the user's sessions, and allow no login and no public link until enabled",
          [this](Accounts& all) { all.setDisabled(name, true); });
    named("enable", "Allow the user everything again",
          [this](Accounts& all) { all.setDisabled(name, false); });
    named("quota", "Limit what all versions of the user's files take together",
          [this](Accounts& all) { all.setQuota(name, static_cast<std::int64_t>(bytes)); })
        ->add_option("SIZE", bytes, "Such as 5G; 0 for no limit")
        ->required()
        ->transform(asSize());
    named("remove", "Remove a user", [this](Accounts& all) {
        all.remove(name, force);
    })->add_flag("--force", force, "Delete the user's files and folders too");
}

void Administration::addSession(CLI::App& app)
{
    auto* group = app.add_subcommand("session", "See and end logins; works beside a running service");
    group->require_subcommand(1);
    add(group, "list", "Print id, user, last use and address of all sessions", [](Store& opened) {
        for (const auto& session : opened.sessions().list())
            std::printf("%s %-24s %s %s\n", session.id.c_str(), session.user.c_str(),
                        timeText(session.used).c_str(),
                        session.address.empty() ? "-" : session.address.c_str());
    });
    auto* end = add(group, "end", "End a session, or all of a user", [this](Store& opened) {
        user.empty() ? opened.sessions().end(name) : opened.sessions().endAllOf(user);
    });
    auto* which = end->add_option_group("Which");
    which->require_option(1);
    which->add_option("ID", name, "As tarnd session list shows it");
    which->add_option("--user", user, "All of this user")->type_name("NAME");
}

void Administration::addLink(CLI::App& app)
{
    auto* group = app.add_subcommand("link", "See and revoke public links; works beside a running service");
    group->require_subcommand(1);
    add(group, "list", "Print id, end, user and path of all public links", [](Store& opened) {
        for (const auto& link : opened.links().list())
            std::printf("%s %-20s %s:%s\n", link.id.c_str(),
                        link.expires == 0 ? "never" : timeText(link.expires).c_str(), link.user.c_str(),
                        link.path.c_str());
    });
    add(group, "revoke", "End a link", [this](Store& opened) { opened.links().revoke(name); })
        ->add_option("ID", name, "As tarnd link list shows it")
        ->required();
}

bool Administration::run()
{
    for (const auto& [command, action, purpose] : commands)
        if (*command) {
            Store opened(store, purpose);
            action(opened);
            return true;
        }
    return false;
}

} // namespace tarnd
