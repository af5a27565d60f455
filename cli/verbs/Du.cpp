#include "cli/remote/Requests.h"
#include "cli/remote/Wildcards.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/RemoteWalk.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

struct Options {
    std::vector<std::string> paths;
    bool summarized = false;
    bool human = false; ///< as it is anyway
    bool bytes = false;
    unsigned depth = 0; ///< 0: all
};

/// What lies in the folders that are open, from the first one down to the last one visited.
class Usage {
public:
    Usage(const Invocation& invocation, const Options& chosen) : out(invocation.out), options(chosen) {}

    /// Folders come before those in them.
    void enter(const RemoteWalk::Folder& folder)
    {
        leave(static_cast<std::size_t>(folder.depth));
        open.push_back({folder.where, 0, 0});
        for (const auto& file : folder.listing->files) {
            open.back().bytes += file.size;
            ++open.back().files;
        }
    }

    /// Tells of all that is open but the first `kept`.
    void leave(std::size_t kept)
    {
        while (open.size() > kept) {
            const auto folder = std::move(open.back());
            open.pop_back();
            if (!open.empty()) {
                open.back().bytes += folder.bytes;
                open.back().files += folder.files;
            }
            const auto depth = open.size();
            if (depth == 0 || (!options.summarized && (options.depth == 0 || depth <= options.depth)))
                tell(folder.where, folder.bytes, folder.files);
        }
    }

    void tell(const RemotePath& where, std::uint64_t bytes, std::uint64_t files)
    {
        const nlohmann::json document{{"path", where.text()}, {"bytes", bytes}, {"files", files}};
        if (out.isLines()) return out.line(document);
        if (out.isJson()) return documents.push_back(document);
        auto size = options.bytes ? std::to_string(bytes) : humanSize(bytes);
        if (size.size() < 8) size.insert(0, 8 - size.size(), ' ');
        out.data(size + "  " + escaped(where.text()) + "\n");
    }

    nlohmann::json documents = nlohmann::json::array();

private:
    struct Sum {
        RemotePath where;
        std::uint64_t bytes;
        std::uint64_t files;
    };

    Output& out;
    const Options& options;
    std::vector<Sum> open;
};

void measure(const Invocation& invocation, const Options& options)
{
    const auto paths = options.paths.empty() ? std::vector{defaultFolder()} : options.paths;
    for (const auto& path : paths)
        addressableOrPattern(path);
    auto connection = invocation.connect();
    Usage usage(invocation, options);
    TransferReport report;
    invocation.out.progress().begin("Measuring");
    auto begun = forEach(invocation.out, paths, [&](const std::string& path) {
        for (const auto& item : expand(connection, path)) {
            const auto attributes = attributesOf(connection, item);
            if (!isFolder(attributes)) {
                usage.tell(item.where, attributes.size, 1);
                continue;
            }
            RemoteWalk walk(connection, invocation.out, [&](auto& folder) { usage.enter(folder); });
            walk.add(item.where);
            addTo(report, walk.run());
            usage.leave(0);
        }
    });
    addTo(report, std::move(begun));
    invocation.out.progress().end();
    if (invocation.out.isJson())
        invocation.out.list("", "usage", usage.documents, {{"failed", toJson(report.failed)}});
    conclude(report, "measured");
}

} // namespace

Verb du()
{
    const auto options = std::make_shared<Options>();
    return {.name = "du",
            .summary = "Show how much lies in folders",
            .examples = "  tarn du -s '/photos/*'\n"
                        "  tarn du -d 1 /",
            .notes = "The sizes are those of the current versions; earlier ones are not counted.",
            .takes = {{"PATH",
                       &options->paths,
                       "Folders and files, wildcards as in '/photos/*'; default: /",
                       {.words = Words::remote}},
                      {"-s,--summarize", &options->summarized, "The sum of each PATH only"},
                      {"-d,--max-depth",
                       &options->depth,
                       "Folders no deeper than N below each PATH",
                       {.valueName = "N", .most = 256}},
                      {"-h,--human", &options->human, "Sizes as people read them; the default"},
                      {"-b,--bytes", &options->bytes, "Sizes in bytes"}},
            .run = [options](const Invocation& invocation) { measure(invocation, *options); }};
}

} // namespace tarncli::verbs
