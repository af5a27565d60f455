#include "cli/remote/Requests.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

void showAttributes(const Invocation& invocation, const std::string& path)
{
    const auto where = addressable(path);
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
    invocation.out.result(table.text(), toJson(where, attributes));
}

} // namespace

Verb stat()
{
    const auto path = std::make_shared<std::string>();
    return {.name = "stat",
            .summary = "Show what the service knows about a file or folder",
            .examples = "  tarn stat /docs/a.txt",
            .takes = {{"PATH", path.get(), "File or folder", {.required = true, .words = Words::remote}}},
            .run = [path](const Invocation& invocation) { showAttributes(invocation, *path); }};
}

} // namespace tarncli::verbs
