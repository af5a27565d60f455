#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/RemoteTree.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using nlohmann::json;

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
            line(indent, --left == 0, escaped(decodedName(child->name)) + "/");
            draw(*child, indent + (left == 0 ? "    " : "│   "));
        }
        for (const auto& file : folder.files)
            line(indent, --left == 0, escaped(decodedName(toUtf8(file.name))));
    }

    void line(const std::string& indent, bool isLast, const std::string& name)
    {
        text += indent + (isLast ? "└── " : "├── ") + name + "\n";
    }
};

json toJson(const RemoteFolder& folder)
{
    json document{{"name", decodedName(folder.name)}, {"folders", json::array()}, {"files", json::array()}};
    for (const auto& child : folder.folders)
        document["folders"].push_back(toJson(*child));
    for (const auto& file : folder.files)
        document["files"].push_back(tarncli::toJson(file));
    return document;
}

void showTree(const Invocation& invocation, const std::string& path)
{
    const auto where = addressable(path.empty() ? defaultFolder() : path);
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

} // namespace

Verb tree()
{
    const auto path = std::make_shared<std::string>();
    return {.name = "tree",
            .summary = "List a folder and everything below it",
            .examples = "  tarn tree /docs",
            .takes = {{"PATH", path.get(), "Folder; default: /", {.words = Words::remote}}},
            .run = [path](const Invocation& invocation) { showTree(invocation, *path); }};
}

} // namespace tarncli::verbs
