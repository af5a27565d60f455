#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/remote/Wildcards.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/RemoteWalk.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using nlohmann::json;

struct Options {
    std::vector<std::string> paths;
    bool longFormat = false;
    bool human = false; ///< as it is anyway
    bool bytes = false;
    bool byTime = false;
    bool bySize = false;
    bool reversed = false;
    bool recursive = false;
};

struct Row {
    std::string name;
    std::uint64_t size;
    std::uint64_t lastModified;
    bool isFolder;
};

void sort(std::vector<Row>& rows, const Options& options)
{
    if (options.byTime) std::ranges::stable_sort(rows, std::ranges::greater(), &Row::lastModified);
    if (options.bySize) std::ranges::stable_sort(rows, std::ranges::greater(), &Row::size);
    if (options.reversed) std::ranges::reverse(rows);
}

std::string lines(const std::vector<Row>& rows)
{
    std::string names;
    for (const auto& row : rows)
        names += escaped(row.name) += '\n';
    return names;
}

std::string shown(std::vector<Row> rows, const Options& options)
{
    using enum Table::Align;
    sort(rows, options);
    if (!options.longFormat) return lines(rows);
    Table table({right, left, left});
    for (const auto& row : rows) {
        const auto size = options.bytes ? std::to_string(row.size) : humanSize(row.size);
        table.add({row.isFolder ? "-" : size, humanTime(row.lastModified), row.name});
    }
    return table.text();
}

std::vector<Row> rowsOf(const FolderListResponse& listing)
{
    std::vector<Row> rows;
    for (const auto& folder : listing.folders)
        rows.push_back({decodedName(toUtf8(folder.name)) + "/", 0, folder.lastModified, true});
    for (const auto& file : listing.files)
        rows.push_back({decodedName(toUtf8(file.name)), file.size, file.lastModified, false});
    return rows;
}

json documentOf(const RemotePath& where, const FolderListResponse& listing)
{
    json document{{"path", where.text()}, {"folders", json::array()}, {"files", json::array()}};
    for (const auto& folder : listing.folders)
        document["folders"].push_back(toJson(folder));
    for (const auto& file : listing.files)
        document["files"].push_back(toJson(file));
    return document;
}

/// One line for each item.
void writeLines(Output& out, const RemotePath& folder, const FolderListResponse& listing)
{
    for (const auto& child : listing.folders)
        out.line(toJson(folder.child(toUtf8(child.name)), attributesOf(child)));
    for (const auto& file : listing.files)
        out.line(toJson(folder.child(toUtf8(file.name)), attributesOf(file)));
}

/// Makes one of them only: a document of ten thousand entries takes its time.
void showListing(const Invocation& invocation, const RemotePath& where, const FolderListResponse& listing,
                 const Options& options)
{
    auto& out = invocation.out;
    if (out.isLines()) return writeLines(out, where, listing);
    out.isJson() ? out.result({}, documentOf(where, listing))
                 : out.result(shown(rowsOf(listing), options), {});
}

FolderListResponse listingOf(const FileAttributes& file)
{
    FolderListResponse single;
    single.files.push_back(summaryOf(file));
    return single;
}

void listOne(const Invocation& invocation, const RemotePath& where, const Options& options)
{
    auto connection = invocation.connect();
    // As a folder first: nearly always it is one, and one request is enough.
    try {
        const auto listing = connection.call([&] { return requestListing(connection, where); });
        return showListing(invocation, where, *listing, options);
    } catch (const std::exception&) {
        const auto error = std::current_exception();
        if (!isRefusal(error, reasons::isFile)) throw about(where.quoted(), explain(error));
    }
    const auto file = attributesOf(connection, where);
    if (invocation.out.isLines()) return invocation.out.line(toJson(where, file));
    showListing(invocation, where, listingOf(file), options);
}

/// Files first, then folder by folder, each under its path.
class Listings {
public:
    Listings(const Invocation& invocation, const Options& chosen) : out(invocation.out), options(chosen) {}

    void addFile(const RemotePath& where, const FileAttributes& file)
    {
        files.push_back({where.text(), file.size, file.lastModified, false});
        if (out.isLines())
            out.line(toJson(where, file));
        else if (out.isJson())
            documents.push_back(documentOf(where, listingOf(file)));
    }

    std::size_t fileCount() const { return files.size(); }

    void showFiles()
    {
        if (!out.isJson()) out.data(shown(files, options));
        isFirst = files.empty();
    }

    void show(const RemoteWalk::Folder& folder)
    {
        if (out.isLines()) return writeLines(out, folder.where, *folder.listing);
        if (out.isJson()) {
            documents.push_back(documentOf(folder.where, *folder.listing));
            return;
        }
        out.data((isFirst ? "" : "\n") + escaped(folder.where.text()) + ":\n" +
                 shown(rowsOf(*folder.listing), options));
        isFirst = false;
    }

    json documents = json::array();

private:
    Output& out;
    const Options& options;
    std::vector<Row> files;
    bool isFirst = true;
};

void listSeveral(const Invocation& invocation, const std::vector<std::string>& paths, const Options& options)
{
    auto connection = invocation.connect();
    Listings listings(invocation, options);
    RemoteWalk walk(
        connection, invocation.out, [&](RemoteWalk::Folder& folder) { listings.show(folder); },
        [&](const RemotePath&, int) { return options.recursive; });
    auto report = forEachItem(connection, invocation.out, paths, false, [&](const RemoteItem& item) {
        const auto attributes = attributesOf(connection, item);
        isFolder(attributes) ? walk.add(item.where) : listings.addFile(item.where, attributes);
    });
    report.done = listings.fileCount(); // folders count when they are listed
    listings.showFiles();
    addTo(report, walk.run());
    if (invocation.out.isJson())
        invocation.out.list("", "listings", listings.documents, {{"failed", toJson(report.failed)}});
    conclude(report, "listed");
}

void list(const Invocation& invocation, const Options& options)
{
    const auto paths = options.paths.empty() ? std::vector{defaultFolder()} : options.paths;
    bool isPattern = false;
    for (const auto& path : paths)
        isPattern = isPattern || hasWildcards(addressableOrPattern(path));
    if (paths.size() > 1 || isPattern || options.recursive) return listSeveral(invocation, paths, options);
    listOne(invocation, addressable(paths.front()), options);
}

} // namespace

Verb ls()
{
    const auto options = std::make_shared<Options>();
    return {
        .name = "ls",
        .summary = "List folders",
        .examples = "  tarn ls\n"
                    "  tarn ls -l /docs\n"
                    "  tarn ls -lt '/photos/*.jpg'          newest first; quoted for the shell\n"
                    "  tarn ls alice:/shared",
        .notes = "--json: {path, folders, files} of one path; of several, with wildcards and with -R "
                 "{listings: [{path, folders, files}, ...], failed}.",
        .takes = {{"PATH",
                   &options->paths,
                   "Folders and files, wildcards as in '/photos/*.jpg'; default: /, or the profile's folder",
                   {.words = Words::remote}},
                  {"-l,--long", &options->longFormat, "With sizes and times"},
                  {"-h,--human", &options->human, "Sizes as people read them; the default"},
                  {"-b,--bytes", &options->bytes, "Sizes in bytes"},
                  {"-t,--by-time", &options->byTime, "Newest first"},
                  {"-S,--by-size", &options->bySize, "Largest first"},
                  {"-r,--reverse", &options->reversed, "The other way round"},
                  {"-R,--recursive", &options->recursive, "Folders below, too"}},
        .run = [options](const Invocation& invocation) { list(invocation, *options); }};
}

} // namespace tarncli::verbs
