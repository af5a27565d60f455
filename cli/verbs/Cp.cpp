#include "cli/remote/FileAbove.h"
#include "cli/remote/Requests.h"
#include "cli/remote/Wildcards.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/RemoteTree.h"
#include "cli/transfer/Upload.h"
#include "cli/transfer/UploadSummary.h"
#include "cli/transfer/UploadTarget.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <iterator>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

struct Options {
    std::vector<std::string> places; ///< the sources, then the target
    bool recursive = false;
    bool force = false;
    bool newVersion = false;
    unsigned jobs = 0; ///< 0: not told
};

/// A remote folder as a source, with all below it.
class Source {
public:
    explicit Source(const RemoteFolder& root) { add(root, ""); }

    SourceTree tree;

private:
    void add(const RemoteFolder& folder, const std::string& below)
    {
        for (const auto& file : folder.files) {
            const auto name = toUtf8(file.name);
            const auto where = folder.where.child(name);
            if (const auto why = whyNotAddressable(name); !why.empty())
                tree.failed.push_back({where, usageError(why)});
            else
                tree.entries.push_back({where, below + name, false, file.size});
        }
        for (const auto& child : folder.folders) {
            tree.entries.push_back({child->where, below + child->name, true, 0});
            add(*child, below + child->name + "/");
        }
    }
};

/// A folder that is copied into itself would never end, and a file has the content already.
void requireApart(const Connection& connection, const RemotePath& source, const RemotePath& target)
{
    const auto ownerOf = [&](const RemotePath& item) {
        return item.bucket.empty() ? connection.user() : item.bucket;
    };
    const auto asFolder = source.isRoot() ? source.path : source.path + "/";
    if (ownerOf(source) == ownerOf(target) && (target.path + "/").starts_with(asFolder))
        throw usageError(source.quoted() + " cannot be copied to " + target.quoted() +
                         ", which is the same or inside it.");
}

void addSource(Connection& connection, Output& out, Uploader& uploader, const RemoteItem& source,
               const UploadTarget::Place& place, TransferReport& unlisted)
{
    requireApart(connection, source.where, place.remote);
    if (!isFolder(*source.known)) {
        Upload upload{source.where, place.remote, source.known->size};
        if (place.found) upload.existing = {place.found->watermark, place.found->size};
        return uploader.add(std::move(upload));
    }
    auto listed = listRemoteTree(connection, out, source.where);
    if (listed.report.done > 0) uploader.addTree(Source(*listed.root).tree, place.remote, place.folder());
    listed.report.done = 0; // nothing was copied by looking
    addTo(unlisted, std::move(listed.report));
}

/// The name that a source gets below the target; empty for a folder that was written with '/' at the end.
std::string nameOf(const RemoteItem& source)
{
    return source.where.asFolder ? "" : source.where.name();
}

void copy(const Invocation& invocation, const Options& options)
{
    if (options.force && options.newVersion) throw usageError("Choose one of --force and --new-version.");
    const std::vector<std::string> paths(options.places.begin(), options.places.end() - 1);
    if (paths.empty()) throw usageError("Name what to copy and where: `tarn cp SOURCE... TARGET`.");
    for (const auto& path : paths)
        addressableOrPattern(path);
    addressable(options.places.back());

    auto connection = invocation.connect(options.jobs, 2);
    std::vector<RemoteItem> sources;
    for (const auto& path : paths)
        std::ranges::move(expand(connection, path), std::back_inserter(sources));
    for (auto& source : sources) {
        source.known = attributesOf(connection, source);
        if (isFolder(*source.known) && !options.recursive)
            throw usageError(source.where.quoted() +
                             " is a folder; use `tarn cp -r` to copy it and everything in it.");
    }
    UploadTarget target(connection, options.places.back());
    // Before a folder is made for them.
    for (const auto& source : sources)
        requireApart(connection, source.where, target.path());
    Uploader uploader(connection, invocation.out,
                      options.force        ? Existing::replace
                      : options.newVersion ? Existing::addVersion
                                           : Existing::refuse);
    const auto isTree = [](const RemoteItem& source) { return isFolder(*source.known); };
    if (std::ranges::any_of(sources, isTree))
        target.makeFor(uploader);
    else if (sources.size() > 1 || target.path().asFolder)
        target.requireFolder();
    auto told = target.path();
    TransferReport unlisted;
    for (const auto& source : sources) {
        const auto place = target.placeFor(nameOf(source), isTree(source));
        addSource(connection, invocation.out, uploader, source, place, unlisted);
        if (sources.size() == 1) told = place.remote;
    }
    auto report = uploader.run();
    for (auto& [what, failure, isTold] : report.transfers.failed)
        if (!isTold) failure = withFileAbove(connection, told, failure);
    addTo(report.transfers, std::move(unlisted));
    const bool several = sources.size() > 1 || isTree(sources.front());
    showUploads(invocation.out, report, told, several ? "in " : "as ", "Copied");
    conclude(report.transfers, "copied");
}

} // namespace

Verb cp()
{
    const auto options = std::make_shared<Options>();
    return {.name = "cp",
            .summary = "Copy files and folders within the service",
            .examples = "  tarn cp /notes.md /notes-before.md\n"
                        "  tarn cp '/photos/*.jpg' /album/\n"
                        "  tarn cp -r alice:/photos /           the folder: becomes /photos\n"
                        "  tarn cp -r /photos/ /album           its contents: become those of /album",
            .notes = "The contents pass through this machine, without being kept here. What is there "
                     "already with the same content is left as it is.",
            .takes = {{"PLACE",
                       &options->places,
                       "SOURCE... TARGET, all of them remote; wildcards as in '/photos/*.jpg'",
                       {.required = true, .words = Words::remote}},
                      {"-r,--recursive", &options->recursive, "Include folders and everything in them"},
                      {"-f,--force", &options->force, "Replace the content of files that exist"},
                      {"--new-version", &options->newVersion, "Keep the old content as a version"},
                      jobsOption(options->jobs)},
            .run = [options](const Invocation& invocation) { copy(invocation, *options); }};
}

} // namespace tarncli::verbs
