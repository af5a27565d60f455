#include "tarnd/http/FolderPage.h"

#include "tarnd/http/PercentEncoding.h"

#include <algorithm>

namespace tarnd {

namespace {

struct Column {
    std::string_view key, title;
    bool (*less)(const Item& a, const Item& b);
};

constexpr Column columns[] = {
    {"name", "Name", [](const Item& a, const Item& b) { return a.name < b.name; }},
    {"size", "Size", [](const Item& a, const Item& b) { return a.size < b.size; }},
    {"date", "Changed <span>(UTC)</span>",
     [](const Item& a, const Item& b) { return a.lastModified < b.lastModified; }},
};

struct Sorting {
    explicit Sorting(std::string_view text) : down(text.starts_with('-'))
    {
        if (down) text.remove_prefix(1);
        for (const auto& each : columns)
            if (each.key == text) column = &each;
    }

    bool isDefault() const { return column == columns && !down; }

    std::string query() const
    {
        return isDefault() ? "" : (down ? "?sort=-" : "?sort=") + std::string(column->key);
    }

    void sort(std::vector<Item>& items) const
    {
        const auto inOrder = [this](const Item& a, const Item& b) {
            return down ? column->less(b, a) : column->less(a, b);
        };
        std::stable_sort(items.begin(), items.end(), inOrder);
    }

    const Column* column = columns;
    bool down;
};

std::string heading(const Column& column, const Sorting& sorting)
{
    const bool sorted = sorting.column == &column;
    const std::string direction = sorting.down ? "descending" : "ascending";
    return "<th scope=\"col\"" + (sorted ? " aria-sort=\"" + direction + "\"" : "") +
           "><a href=\"?sort=" + (sorted && !sorting.down ? "-" : "") + std::string(column.key) + "\">" +
           std::string(column.title) + "</a></th>";
}

std::string row(const Item& item, const PagePlace& place, const Sorting& sorting)
{
    const bool isFile = item.kind == ItemKind::file;
    return "<tr><td><a href=\"" + place.base + percentEncode(item.name) +
           (isFile ? "\">" : "/" + sorting.query() + "\">") + htmlName(item.name) + (isFile ? "" : "/") +
           "</a></td><td>" + (isFile ? htmlSize(item.size) : "") + "</td><td>" + htmlTime(item.lastModified) +
           "</td></tr>";
}

} // namespace

Reply folderPage(const Listing& listing, const PagePlace& place, std::string_view sort)
{
    const Sorting sorting(sort);
    auto folders = listing.folders, files = listing.files;
    sorting.sort(folders);
    sorting.sort(files);
    const bool empty = folders.empty() && files.empty();
    auto body = htmlActions(place, empty ? "" : "Download all");
    if (empty) return htmlPage(200, listing.folder.name, body + "<p>This folder is empty.</p>");
    body += "<table><thead><tr>";
    for (const auto& column : columns)
        body += heading(column, sorting);
    body += "</tr></thead><tbody>";
    for (const auto* items : {&folders, &files})
        for (const auto& item : *items)
            body += row(item, place, sorting);
    return htmlPage(200, listing.folder.name, body + "</tbody></table>");
}

} // namespace tarnd
