#include "cli/verbs/Cat.h"

#include "cli/remote/ContentReceiver.h"
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

/// What has been written cannot be taken back, and only a hash of it is kept.
class StandardOutput : public ContentTarget, public std::enable_shared_from_this<StandardOutput> {
public:
    explicit StandardOutput(Output& output) : out(output) {}

    std::uint64_t held() const override { return written; }

    std::shared_ptr<Sha256> hash() override { return digest; }

    std::string version() const override { return versionId; }

    void setVersion(const std::string& id) override { versionId = id; }

    void startOver(const std::string& why) override
    {
        throw Failure(ExitCode::failure, why + "; read it again.");
    }

    ContentSubscriber subscriber() override
    {
        return std::make_shared<ContentReceiver>([self = shared_from_this()](std::string_view bytes) {
            self->requireRoomTo(self->written + bytes.size());
            self->out.data(bytes);
            self->written += bytes.size();
        });
    }

private:
    Output& out;
    const std::shared_ptr<Sha256> digest = std::make_shared<Sha256>();
    std::uint64_t written = 0;
    std::string versionId;
};

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
        if (!invocation.out.isJson())
            return fetchContent(connection, file, version, std::make_shared<StandardOutput>(invocation.out));
        documents.push_back(contentAsJson(file.text(), readContent(connection, file, version)));
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
            .takes = {{"PATH", &options->paths, "Files", {.required = true, .words = Words::remote}},
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
