#include "cli/remote/Requests.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using nlohmann::json;

struct Options {
    std::string path = "/";
    bool longFormat = false;
};

struct Row {
    std::string name;
    std::string size;
    std::uint64_t lastModified;
};

std::string shown(const std::vector<Row>& rows, bool longFormat)
{
    using enum Table::Align;
    Table table(longFormat ? std::vector{right, left, left} : std::vector{left});
    for (const auto& row : rows) {
        if (longFormat)
            table.add({row.size, humanTime(row.lastModified), row.name});
        else
            table.add({row.name});
    }
    return table.text();
}

std::vector<Row> rowsOf(const FolderListResponse& listing)
{
    std::vector<Row> rows;
    for (const auto& folder : listing.folders)
        rows.push_back({toUtf8(folder.name) + "/", "-", folder.lastModified});
    for (const auto& file : listing.files)
        rows.push_back({toUtf8(file.name), humanSize(file.size), file.lastModified});
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

/// Makes one of the two only: a document of ten thousand entries takes its time.
void showListing(const Invocation& invocation, const RemotePath& where, const FolderListResponse& listing,
                 bool longFormat)
{
    auto& out = invocation.out;
    out.isJson() ? out.result({}, documentOf(where, listing))
                 : out.result(shown(rowsOf(listing), longFormat), {});
}

void list(const Invocation& invocation, const Options& options)
{
    const auto where = addressable(options.path);
    auto connection = invocation.connect();
    // As a folder first: nearly always it is one, and one request is enough.
    try {
        const auto listing = connection.call([&] { return requestListing(connection, where); });
        return showListing(invocation, where, *listing, options.longFormat);
    } catch (const std::exception&) {
        const auto error = std::current_exception();
        if (!isRefusal(error, reasons::isFile)) throw about(where.quoted(), explain(error));
    }
    FolderListResponse single;
    single.files.push_back(summaryOf(attributesOf(connection, where)));
    showListing(invocation, where, single, options.longFormat);
}

} // namespace

Verb ls()
{
    const auto options = std::make_shared<Options>();
    return {.name = "ls",
            .summary = "List a folder",
            .examples = "  tarn ls\n"
                        "  tarn ls -l /docs\n"
                        "  tarn ls alice:/shared",
            .takes = {{"PATH", &options->path, "Folder or file; default: /"},
                      {"-l,--long", &options->longFormat, "With sizes and times"}},
            .run = [options](const Invocation& invocation) { list(invocation, *options); }};
}

} // namespace tarncli::verbs
