#include "tarnd/Move.h"

#include "tarnd/ServeFlags.h"
#include "tarnd/store/Sentences.h"

#include <chrono>
#include <cstdio>

namespace tarnd {

namespace {

/// A line now and then, which a terminal shows and a log can hold.
MoveProgress lines()
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds pause{2};
    return [last = Clock::now(), pause](const MoveReport& soFar, const MoveReport& all) mutable {
        if (Clock::now() - last < pause) return;
        last = Clock::now();
        if (soFar.rows > 0)
            std::fprintf(stderr, "tarnd: %ju rows\n", std::uintmax_t{soFar.rows});
        else
            std::fprintf(stderr, "tarnd: %ju of %ju contents, %ju of %ju bytes\n",
                         std::uintmax_t{soFar.contents}, std::uintmax_t{all.contents},
                         std::uintmax_t{soFar.bytes}, std::uintmax_t{all.bytes});
    };
}

} // namespace

Move::Move(CLI::App& app)
    : command(app.add_subcommand("move", "Take a store on SQLite along to PostgreSQL, and to an object store "
                                         "if --contents names one; nobody may be serving it"))
{
    addStoreOptions(*command, target);
    command->get_option("--database")->required();
}

/// The source is closed before it is set aside: its database then has no log that would be left behind.
bool Move::run()
{
    if (!*command) return false;
    StoreOptions source;
    source.dataDir = target.dataDir;
    if (!std::filesystem::exists(source.dataDir / "tarn.db")) throw sentences::noData(source.dataDir);
    const auto moved = Store(source, Purpose::check).moveTo(target, lines());
    const bool contentsToo = !target.contentsUrl.empty();
    setMovedAside(source.dataDir, contentsToo);
    std::printf(
        "Moved %ju rows and %ju contents of %ju bytes. Serve the store with --database%s from now on; what "
        "would serve it without is called .moved in %s.\n",
        std::uintmax_t{moved.rows}, std::uintmax_t{moved.contents}, std::uintmax_t{moved.bytes},
        contentsToo ? " and --contents" : "", source.dataDir.c_str());
    return true;
}

} // namespace tarnd
