#include "cli/remote/Change.h"
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

/// A target that is a folder takes the source in under its own name.
RemotePath moveTarget(Connection& connection, const RemotePath& source, const RemotePath& target)
{
    const auto found = findAttributes(connection, target);
    if (found && isFolder(*found) && !source.isRoot()) return target.child(source.name());
    if (target.asFolder && !found)
        throw Failure(ExitCode::notFound,
                      "There is no folder " + target.quoted() + "; make it with `tarn mkdir -p`.");
    return target;
}

void move(const Invocation& invocation, const Options& options)
{
    const auto source = addressable(options.source);
    const auto named = addressable(options.target);
    auto connection = invocation.connect();
    const auto target = moveTarget(connection, source, named);
    const auto send = [&] {
        auto request = requestFor<Move>(source);
        request->targetPath = toUtf16(target.path);
        request->targetBucket = toUtf16(target.bucket);
        request->moveTargetOverwrite = options.force;
        return connection.files().move(std::move(request));
    };
    const auto isMoved = [&] {
        return !findAttributes(connection, source) && findAttributes(connection, target);
    };
    naming(source, [&] { makeChange(connection, send, isMoved); });
    invocation.out.detail("Moved " + source.quoted() + " to " + target.quoted() + ".");
    invocation.out.result("", {{"source", source.text()}, {"target", target.text()}});
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
