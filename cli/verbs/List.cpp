#include "cli/remote/Requests.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/RemoteTree.h"
#include "cli/verbs/Verbs.h"

#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using namespace connector::tarn;
using nlohmann::json;

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

void showListing(const Invocation& invocation, const RemotePath& where, const FolderListResponse& listing,
                 bool longFormat)
{
    std::vector<Row> rows;
    json document{{"path", where.text()}, {"folders", json::array()}, {"files", json::array()}};
    for (const auto& folder : listing.folders) {
        rows.push_back({toUtf8(folder.name) + "/", "-", folder.lastModified});
        document["folders"].push_back(toJson(folder));
    }
    for (const auto& file : listing.files) {
        rows.push_back({toUtf8(file.name), humanSize(file.size), file.lastModified});
        document["files"].push_back(toJson(file));
    }
    invocation.out.result(shown(rows, longFormat), document);
}

/// What a file's attributes have in common with its entry in a listing.
FileSummary summaryOf(const FileAttributes& attributes)
{
    return {attributes.name, attributes.created,  attributes.lastModified,
            attributes.size, attributes.writable, attributes.watermark};
}

/// One folder as lines under its name, the way a tree is drawn.
class TreeText {
public:
    explicit TreeText(const RemoteFolder& root) : text(escaped(root.where.text()) + "\n") { draw(root, ""); }

    std::string text;

private:
    void draw(const RemoteFolder& folder, const std::string& indent)
    {
        auto left = folder.folders.size() + folder.files.size();
        for (const auto& child : folder.folders) {
            line(indent, --left == 0, escaped(child->name) + "/");
            draw(*child, indent + (left == 0 ? "    " : "│   "));
        }
        for (const auto& file : folder.files)
            line(indent, --left == 0, escaped(toUtf8(file.name)));
    }

    void line(const std::string& indent, bool isLast, const std::string& name)
    {
        text += indent + (isLast ? "└── " : "├── ") + name + "\n";
    }
};

json toJson(const RemoteFolder& folder)
{
    json document{{"name", folder.name}, {"folders", json::array()}, {"files", json::array()}};
    for (const auto& child : folder.folders)
        document["folders"].push_back(toJson(*child));
    for (const auto& file : folder.files)
        document["files"].push_back(tarncli::toJson(file));
    return document;
}

} // namespace

namespace verbs {

void list(const Invocation& invocation, const ListOptions& options)
{
    const auto where = addressable(options.path);
    auto connection = invocation.connect();
    try {
        return showListing(invocation, where, *listFolder(connection, where), options.longFormat);
    } catch (const std::exception&) {
        const auto error = std::current_exception();
        if (!isAnswer(error, answers::isFile)) throw about(where.quoted(), explain(error));
    }
    FolderListResponse single;
    single.files.push_back(summaryOf(attributesOf(connection, where)));
    showListing(invocation, where, single, options.longFormat);
}

void tree(const Invocation& invocation, const PathOptions& options)
{
    const auto where = addressable(options.path.empty() ? "/" : options.path);
    auto connection = invocation.connect();
    const auto found = listRemoteTree(connection, invocation.out, where);
    if (found.report.done > 0) {
        auto document = toJson(*found.root);
        document["path"] = where.text();
        document["failed"] = toJson(found.report.failed);
        invocation.out.result(TreeText(*found.root).text, document);
    }
    conclude(found.report, "listed");
}

void stat(const Invocation& invocation, const PathOptions& options)
{
    const auto where = addressable(options.path);
    auto connection = invocation.connect();
    const auto attributes = attributesOf(connection, where);
    Table table({Table::Align::left, Table::Align::left});
    table.add({"path", where.text()});
    table.add({"type", isFolder(attributes) ? "folder" : "file"});
    if (!isFolder(attributes))
        table.add({"size", humanSize(attributes.size) + " (" + std::to_string(attributes.size) + ")"});
    table.add({"created", humanTime(attributes.created)});
    table.add({"modified", humanTime(attributes.lastModified)});
    table.add({"writable", attributes.writable ? "yes" : "no"});
    table.add({"watermark", attributes.watermark});
    auto document = tarncli::toJson(summaryOf(attributes));
    document["path"] = where.text();
    document["type"] = isFolder(attributes) ? "folder" : "file";
    invocation.out.result(table.text(), document);
}

} // namespace verbs

} // namespace tarncli
