#include "cli/remote/Requests.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

void printLink(const Invocation& invocation, const std::string& path)
{
    const auto item = addressable(path);
    auto connection = invocation.connect();
    const auto response = naming(item, [&] {
        return connection.call(
            [&] { return connection.files().getPublicAccessUrl(requestFor<PublicAccessUrlGet>(item)); });
    });
    const auto url = toUtf8(response->url);
    // A reply without one reads as an empty link, which a script would go on with.
    if (url.empty())
        throw Failure(ExitCode::failure, "The service did not return a link for " + item.quoted() + ".");
    invocation.out.result(escaped(url) + "\n", {{"path", item.text()}, {"url", url}});
}

} // namespace

Verb link()
{
    const auto path = std::make_shared<std::string>();
    return {.name = "link",
            .summary = "Print a link that opens a file or folder without logging in",
            .examples = "  tarn link /photo.jpg",
            .takes = {{"PATH", path.get(), "File or folder", {.required = true, .words = Words::remote}}},
            .run = [path](const Invocation& invocation) { printLink(invocation, *path); }};
}

} // namespace tarncli::verbs
