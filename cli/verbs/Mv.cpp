#include "cli/remote/Change.h"
#include "cli/remote/FileAbove.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

struct Options {
    std::string source;
    std::string target;
    bool force = false;
};

struct Target {
    RemotePath where;
    bool exists = false; ///< and would be replaced
};

/// A target that is a folder takes the source in under its own name.
Target moveTarget(Connection& connection, const RemotePath& source, const RemotePath& target, bool force)
{
    const auto found = findAttributes(connection, target);
    if (found && isFolder(*found) && !source.isRoot()) {
        const auto where = target.child(source.name());
        return {where, force && findAttributes(connection, where)};
    }
    if (target.asFolder && !found)
        throw withFileAbove(connection, target,
                            Failure(ExitCode::notFound, "There is no folder " + target.quoted() +
                                                            "; make it with `tarn mkdir -p`."));
    return {target, force && found};
}

void move(const Invocation& invocation, const Options& options)
{
    const auto source = addressable(options.source);
    const auto named = addressable(options.target);
    auto connection = invocation.connect();
    const auto target = moveTarget(connection, source, named, options.force);
    const auto send = [&] {
        auto request = requestFor<Move>(source);
        request->targetPath = toUtf16(target.where.path);
        request->targetBucket = toUtf16(target.where.bucket);
        request->moveTargetOverwrite = options.force;
        return connection.files().move(std::move(request));
    };
    const auto isMoved = [&] {
        return !findAttributes(connection, source) && findAttributes(connection, target.where);
    };
    const auto makeMove = [&] {
        Change change{Change::Kind::move, source.stored(), target.where.stored()};
        change.before = readAttributes(connection, source).watermark;
        change.loses = target.exists;
        recorded(connection, change, [&] {
            makeChange(connection, send, isMoved);
            return std::string();
        });
    };
    try {
        naming(source, makeMove);
    } catch (const Failure& failure) {
        throw withFileAbove(connection, target.where, failure);
    }
    invocation.out.detail("Moved " + source.quoted() + " to " + target.where.quoted() + ".");
    invocation.out.result("", {{"source", source.text()}, {"target", target.where.text()}});
}

} // namespace

Verb mv()
{
    const auto options = std::make_shared<Options>();
    return {
        .name = "mv",
        .summary = "Move or rename a file or folder",
        .examples = "  tarn mv /a.txt /b.txt\n"
                    "  tarn mv /a.txt /docs/",
        .takes = {{"SOURCE", &options->source, "File or folder", {.required = true, .words = Words::remote}},
                  {"TARGET",
                   &options->target,
                   "New path, or the folder it goes into",
                   {.required = true, .words = Words::remote}},
                  {"-f,--force", &options->force, "Replace a target that exists"}},
        .run = [options](const Invocation& invocation) { move(invocation, *options); }};
}

} // namespace tarncli::verbs
