#include "cli/verbs/Cat.h"

#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/transfer/Conclusion.h"

#include <Poco/Base64Encoder.h>

#include <nlohmann/json.hpp>
#include <sstream>

namespace tarncli {

namespace {

using namespace connector::tarn;

std::string base64(std::string_view bytes)
{
    std::ostringstream text;
    Poco::Base64Encoder encoder(text);
    encoder.rdbuf()->setLineLength(0);
    encoder.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    encoder.close();
    return text.str();
}

nlohmann::json contentAsJson(const std::string& path, std::string_view bytes)
{
    const bool isText = isValidUtf8(bytes);
    return {{"path", path},
            {"size", bytes.size()},
            {"encoding", isText ? "utf-8" : "base64"},
            {"content", isText ? std::string(bytes) : base64(bytes)}};
}

} // namespace

void writeContents(const Invocation& invocation, const std::vector<std::string>& paths,
                   const std::string& chosenVersion)
{
    // All of them first: a slip in the last one must not show behind the output of the others.
    for (const auto& path : paths)
        addressable(path);
    auto connection = invocation.connect();
    auto documents = nlohmann::json::array();
    const auto report = forEach(invocation.out, paths, [&](const std::string& path) {
        const auto file = addressable(path);
        VersionInfo version;
        if (!chosenVersion.empty()) version = chooseVersion(connection, file, chosenVersion);
        const auto read = readContent(connection, file, version);
        if (invocation.out.isJson())
            documents.push_back(contentAsJson(file.text(), read->content.bytes()));
        else
            invocation.out.data(read->content.bytes());
    });
    invocation.out.result("", {{"files", documents}, {"failed", toJson(report.failed)}});
    conclude(report, "read");
}

namespace verbs {

namespace {

struct Options {
    std::vector<std::string> paths;
    std::string version; ///< label or id; empty: the current one
};

} // namespace

Verb cat()
{
    const auto options = std::make_shared<Options>();
    return {.name = "cat",
            .summary = "Write files to standard output",
            .examples = "  tarn cat /notes.md\n"
                        "  tarn cat --version 2 /notes.md",
            .takes = {{"PATH", &options->paths, "Files", {.required = true}},
                      {"--version",
                       &options->version,
                       "Number or id of an earlier version",
                       {.valueName = "VERSION"}}},
            .run = [options](const Invocation& invocation) {
                writeContents(invocation, options->paths, options->version);
            }};
}

} // namespace verbs

} // namespace tarncli
