#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/remote/Wildcards.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/RemoteWalk.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using nlohmann::json;

struct Options {
    std::vector<std::string> paths;
    std::string name;
    std::string nameInAnyCase;
    std::string type;
    std::vector<std::string> sizes;
    std::vector<std::string> ages;
    std::string depth;
    bool zeros = false;
};

/// What an item must be like.
class Conditions {
public:
    explicit Conditions(const Options& chosen) : options(chosen)
    {
        for (const auto& size : options.sizes)
            sizes.push_back(bound(size, "size", parseSize));
        for (const auto& age : options.ages)
            ages.push_back(bound(age, "age", parseAge));
    }

    bool hold(const RemotePath& where, const FileAttributes& item) const
    {
        // The root has no name, and `find` calls it by its path.
        const auto name = where.isRoot() ? where.path : decodedName(where.name());
        if (!options.name.empty() && !matches(options.name, name, LetterCase::matters)) return false;
        if (!options.nameInAnyCase.empty() && !matches(options.nameInAnyCase, name, LetterCase::ignored))
            return false;
        if (!options.type.empty() && isFolder(item) != (options.type == "d")) return false;
        const auto age = now > item.lastModified ? now - item.lastModified : 0;
        return std::ranges::all_of(sizes, [&](const auto& each) { return each.holds(item.size); }) &&
               (sizes.empty() || !isFolder(item)) &&
               std::ranges::all_of(ages, [&](const auto& each) { return each.holds(age); });
    }

private:
    struct Bound {
        char sign; ///< '+': more than, '-': less than, '=': exactly
        std::uint64_t value;

        bool holds(std::uint64_t actual) const
        {
            return sign == '+' ? actual > value : sign == '-' ? actual < value : actual == value;
        }
    };

    template <class Parse>
    static Bound bound(const std::string& text, const char* what, Parse parse)
    {
        const char sign = text.starts_with('+') || text.starts_with('-') ? text.front() : '=';
        const auto value = parse(sign == '=' ? text : text.substr(1));
        if (!value) throw usageError("\"" + escaped(text) + "\" is no " + what + "; see `tarn find --help`.");
        return {sign, *value};
    }

    const Options& options;
    std::vector<Bound> sizes;
    std::vector<Bound> ages; ///< in milliseconds
    std::uint64_t now = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                       std::chrono::system_clock::now().time_since_epoch())
                                                       .count());
};

/// Writes what is found as it is found: what there is may be more than fits into memory.
class Findings {
public:
    Findings(Output& output, bool withZeros) : out(output), zeros(withZeros)
    {
        if (out.isJson() && !out.isLines()) text = "{\"found\":[";
    }

    void add(const RemotePath& where, const FileAttributes& item)
    {
        if (out.isJson()) {
            const auto dumped = toJson(where, item).dump(-1, ' ', false, json::error_handler_t::replace);
            text += out.isLines() ? dumped + "\n" : (count > 0 ? "," : "") + dumped;
        } else {
            text += zeros ? where.text() + '\0' : escaped(where.text()) + "\n";
        }
        ++count;
        if (text.size() > atOnce) flush();
    }

    void end(const TransferReport& report)
    {
        if (out.isJson() && !out.isLines()) text += "],\"failed\":" + toJson(report.failed).dump() + "}\n";
        flush();
        if (out.isLines()) out.list("", "found", json::array(), {{"failed", toJson(report.failed)}});
    }

    void flush()
    {
        out.data(text);
        text.clear();
    }

private:
    static constexpr std::size_t atOnce = 16 * 1024;

    Output& out;
    bool zeros;
    std::string text;
    std::uint64_t count = 0;
};

/// -1: no limit
int depthOf(const std::string& text)
{
    if (text.empty()) return -1;
    if (text.size() > 3 || text.find_first_not_of("0123456789") != std::string::npos)
        throw usageError("\"" + escaped(text) + "\" is no depth; see `tarn find --help`.");
    return std::stoi(text);
}

void find(const Invocation& invocation, const Options& options)
{
    const auto paths = options.paths.empty() ? std::vector{defaultFolder()} : options.paths;
    for (const auto& path : paths)
        addressableOrPattern(path);
    const Conditions conditions(options);
    const int depth = depthOf(options.depth);
    auto connection = invocation.connect();
    Findings findings(invocation.out, options.zeros);
    const auto offer = [&](const RemotePath& where, const FileAttributes& item) {
        if (conditions.hold(where, item)) findings.add(where, item);
    };
    const auto enters = [depth](const RemotePath&, int below) { return depth < 0 || below < depth; };
    const auto visit = [&](RemoteWalk::Folder& folder) {
        const auto& listing = *folder.listing;
        if (folder.depth > 0) offer(folder.where, attributesOf(listing.folder));
        for (const auto& file : listing.files)
            offer(folder.where.child(toUtf8(file.name)), attributesOf(file));
        for (const auto& child : listing.folders)
            if (const auto where = folder.where.child(toUtf8(child.name)); !enters(where, folder.depth + 1))
                offer(where, attributesOf(child));
        findings.flush();
    };
    TransferReport report;
    invocation.out.progress().begin("Searching");
    auto begun = forEach(invocation.out, paths, [&](const std::string& path) {
        for (const auto& item : expand(connection, path)) {
            const auto attributes = attributesOf(connection, item);
            offer(item.where, attributes);
            if (!isFolder(attributes) || depth == 0) continue;
            RemoteWalk walk(connection, invocation.out, visit, enters);
            walk.add(item.where);
            addTo(report, walk.run());
        }
    });
    addTo(report, std::move(begun));
    invocation.out.progress().end();
    findings.end(report);
    conclude(report, "searched");
}

} // namespace

Verb find()
{
    const auto options = std::make_shared<Options>();
    return {
        .name = "find",
        .summary = "Find files and folders by name, size, age or type",
        .examples = "  tarn find /photos --name '*.jpg' --size +10M\n"
                    "  tarn find / --type f --mtime -7d\n"
                    "  tarn find /logs --name '*.log' --mtime +30d --print0 | xargs -0 -r tarn rm --",
        .notes = "+N is more than N, -N less, N exactly. Options may be written with one dash, as "
                 "`-name`.",
        .takes =
            {{"PATH",
              &options->paths,
              "Folders, wildcards as in '/photos/2*'; default: /",
              {.words = Words::remote}},
             {"--name", &options->name, "Name with the wildcards * ? [...]", {.valueName = "GLOB"}},
             {"--iname", &options->nameInAnyCase, "Likewise, in capitals or not", {.valueName = "GLOB"}},
             {"--type", &options->type, "f: files, d: folders", {.valueName = "f|d", .choices = {"f", "d"}}},
             {"--size", &options->sizes, "Size of a file in bytes, or with k, M, G, T", {.valueName = "N"}},
             {"--mtime",
              &options->ages,
              "Since its last change: days, or with s, m, h, d, w",
              {.valueName = "N"}},
             {"--maxdepth,--max-depth",
              &options->depth,
              "Folders below each PATH to go down; 0: none",
              {.valueName = "N"}},
             {"--print0", &options->zeros, "End each path with a zero byte instead of a line break"}},
        .run = [options](const Invocation& invocation) { find(invocation, *options); },
        .takesSingleDashes = true};
}

} // namespace tarncli::verbs
