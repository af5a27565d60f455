#include "tarnd/Administration.h"
#include "tarnd/ConfigFile.h"
#include "tarnd/Move.h"
#include "tarnd/Prune.h"
#include "tarnd/Serve.h"
#include "tarnd/ServeFlags.h"
#include "tarnd/Status.h"
#include "tarnd/store/Sentences.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <memory>
#include <sys/stat.h>

namespace {

using namespace tarnd;

constexpr int failure = 1;
constexpr int usage = 2;

/// @returns the exit code
int printCopy(const char* done, const CopyReport& report)
{
    for (const auto& id : report.missing)
        std::printf("The content %s is missing; see tarnd fsck.\n", id.c_str());
    std::printf("%s %ju contents, %ju of them new.\n", done, std::uintmax_t{report.contents},
                std::uintmax_t{report.added});
    return report.missing.empty() ? 0 : failure;
}

/// Alone where nobody serves the data, so that what is found cannot change meanwhile; else beside the service.
std::unique_ptr<Store> openToLook(const StoreOptions& options, bool repair)
{
    try {
        return std::make_unique<Store>(options, Purpose::check);
    } catch (const ServiceError& error) {
        if (repair || error.reason() != sentences::dataInUse.reason) throw;
        return std::make_unique<Store>(options, Purpose::copy);
    }
}

int check(const StoreOptions& options, bool repair)
{
    const auto store = openToLook(options, repair);
    if (repair)
        for (const auto& version : store->setMissingAside())
            std::printf("Set aside: %s\n", version.c_str());
    const auto report = store->fsck();
    for (const auto& problem : report.problems)
        std::printf("%s\n", problem.c_str());
    std::printf("Checked %ju files and folders and %ju contents of %ju bytes: %zu problems.\n",
                std::uintmax_t{report.items}, std::uintmax_t{report.contents}, std::uintmax_t{report.bytes},
                report.problems.size());
    return report.clean() ? 0 : failure;
}

int backUp(const StoreOptions& options, const std::string& target)
{
    return printCopy("Backed up", Store(options, Purpose::copy).copyTo(target, CopyPurpose::backup));
}

/// Reads all of what it has restored: a backup is known to be good once it was.
int restore(const std::string& backup, const StoreOptions& options)
{
    StoreOptions source;
    source.dataDir = backup;
    const int copied =
        printCopy("Restored", Store(source, Purpose::check).copyTo(options.dataDir, CopyPurpose::restore));
    StoreOptions restored;
    restored.dataDir = options.dataDir;
    const int checked = check(restored, false);
    return copied == 0 ? checked : copied;
}

struct CommandLine {
    CommandLine()
    {
        app.require_subcommand(1);
        addStoreOptions(*serve, options.store);
        addServeOptions(*serve, options);
        addStoreOptions(*fsck, options.store);
        fsck->add_flag(
            "--repair", repair,
            "Take versions whose content is missing out of the tree, and say which; the service stopped");
        addStoreOptions(*status, options.store);
        for (auto* command : {backup, restoration}) {
            addStoreOptions(*command, options.store);
            command->add_option("DIR", copy, "The directory of the backup")->required();
        }
        config->require_subcommand(1);
        configCheck->add_option("FILE", configFile, "As given to --config")->required();
    }

    /// @param readAgain  the options as they stand in the files by then
    int run(const std::function<ServeOptions()>& readAgain)
    {
        // `serve` opens the store itself: it blocks signals first, before any thread of the store exists.
        if (*serve) {
            if (const auto* given = serve->get_option("--config"); given->count() > 0)
                options.configFile = given->as<std::string>();
            return tarnd::serve(options, readAgain), 0;
        }
        if (*status) return printStatus(options.store);
        if (*backup) return backUp(options.store, copy);
        if (*restoration) return restore(copy, options.store);
        if (*fsck) return check(options.store, repair);
        if (*configCheck) return checkConfigFile(configFile), 0;
        if (!prune.run() && !move.run()) administration.run();
        return 0;
    }

    CLI::App app{"The file storage service of Tarn", "tarnd"};
    CLI::App* serve = app.add_subcommand("serve", "Serve until SIGTERM");
    Administration administration{app};
    Prune prune{app};
    Move move{app};
    CLI::App* config = app.add_subcommand("config", "Look at configuration files");
    CLI::App* configCheck = config->add_subcommand("check", "Say what is wrong in a file, and where");
    CLI::App* fsck = app.add_subcommand(
        "fsck", "Compare everything stored with what should be there, also while it is served");
    CLI::App* status = app.add_subcommand("status", "Ask the running service how it is");
    CLI::App* backup =
        app.add_subcommand("backup", "Bring a copy of everything up to date, also while it is served");
    CLI::App* restoration =
        app.add_subcommand("restore", "Make a new data directory of a backup and check it");
    ServeOptions options;
    std::string configFile;
    std::string copy;
    bool repair = false;
};

int fail(const char* sentence, const std::string& detail)
{
    std::fprintf(stderr, "tarnd: %s%s%s\n", sentence, detail.empty() ? "" : "\n", detail.c_str());
    return failure;
}

/// @returns the exit code
int refuse(const CLI::App& app, const CLI::ParseError& error)
{
    const auto unknown = app.remaining(true);
    // A word that nobody takes is the slip, and that something else is missing then its consequence.
    const bool isSlip =
        !unknown.empty() && (!unknown.front().starts_with('-') || !app.get_subcommands().empty());
    if (error.get_exit_code() == 0 || !isSlip) return app.exit(error) == 0 ? 0 : usage;
    std::fprintf(stderr, "There is no \"%s\" here.\nRun with --help for more information.\n",
                 unknown.front().c_str());
    return usage;
}

} // namespace

int main(int argc, char** argv)
{
    umask(077); // whatever is stored belongs to this user alone
    CommandLine commandLine;
    const auto readAgain = [&] {
        CommandLine again;
        again.app.parse(argc, argv);
        return again.options;
    };
    try {
        commandLine.app.parse(argc, argv);
        return commandLine.run(readAgain);
    } catch (const CLI::ParseError& error) {
        return refuse(commandLine.app, error);
    } catch (const ServiceError& error) {
        return fail(error.what(), error.detail());
    } catch (const std::exception& error) {
        return fail(error.what(), {});
    }
}
