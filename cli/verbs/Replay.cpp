#include "cli/machine/FileDescriptor.h"
#include "cli/machine/SystemError.h"
#include "cli/service/Endpoint.h"
#include "cli/service/Recording.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verb.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarnhost/FileSource.h"

#include <nlohmann/json.hpp>
#include <sys/mman.h>

namespace tarncli::verbs {

namespace {

using namespace connector::http;

/// Zeros of that size, which take no memory: a file that is all hole.
BodyPublisher bodyOf(std::uint64_t size)
{
    const FileDescriptor file(::memfd_create("body", MFD_CLOEXEC));
    if (!file || ::ftruncate(file.get(), static_cast<off_t>(size)) != 0)
        throwErrno("Could not make", "a body");
    return std::make_shared<connector::host::FileSource>(file.get());
}

std::unique_ptr<HttpClientRequest> requestFrom(const RecordedRequest& recorded, const std::string& service)
{
    const char* const identity = recorded.target.find('?') == recorded.target.npos ? "?" : "&";
    auto request = std::make_unique<HttpClientRequest>(
        service + recorded.target + identity + "locale=en_US&clientType=cli", recorded.method, nullptr);
    if (recorded.method == "get" && recorded.target.starts_with("/service/v1/files/"))
        request->replyBody = ReplyBody::content;
    if (recorded.size == 0) return request;
    request->body = bodyOf(recorded.size);
    request->headers.emplace("Content-Length", std::to_string(recorded.size));
    return request;
}

/// 0: no complete reply came.
std::uint16_t statusOf(Connection& connection, const RecordedRequest& recorded)
{
    try {
        return connection.send(requestFrom(recorded, connection.url())).get()->status;
    } catch (const connector::host::TransportError&) {
        return 0;
    }
}

std::string told(std::uint16_t status)
{
    return status == 0 ? "no reply" : std::to_string(status);
}

/// What is repeated changes things, so that it is for a service that is there to be changed.
void requireExpendable(const Invocation& invocation)
{
    const auto service = serviceFor(invocation.connection.service);
    if (service.isLocal() || !isLoopback(service.endpoint))
        throw usageError(
            "What is repeated changes files: name a service on this machine that is there for it, "
            "such as --endpoint http://127.0.0.1:7070.");
}

void repeat(const Invocation& invocation, const std::string& file)
{
    requireExpendable(invocation);
    const auto recording = Recording::load(file);
    auto connection = invocation.connect();
    Table table({Table::Align::right, Table::Align::left, Table::Align::left});
    auto different = nlohmann::json::array();
    std::size_t repeated = 0;
    for (const auto& request : recording.requests) {
        if (!request.isFinished) continue; // nothing is known to compare with
        ++repeated;
        const auto status = statusOf(connection, request);
        if (status == request.status) continue;
        table.add({"#" + std::to_string(request.id), request.method + " " + request.target,
                   told(status) + ", was " + told(request.status)});
        different.push_back({{"id", request.id},
                             {"method", request.method},
                             {"target", request.target},
                             {"status", status},
                             {"was", request.status}});
    }
    const auto leftOut = recording.leftOut + recording.requests.size() - repeated;
    invocation.out.result(table.text(),
                          {{"repeated", repeated}, {"leftOut", leftOut}, {"different", different}});
    invocation.out.message(std::to_string(repeated) + " repeated, " + std::to_string(leftOut) +
                           " left out, " + std::to_string(different.size()) + " with another status.");
    if (!different.empty())
        throw Failure(ExitCode::failure, "The service does not answer as it did when this was recorded.");
}

} // namespace

Verb replay()
{
    const auto file = std::make_shared<std::string>();
    return {.name = "replay",
            .summary = "Repeat recorded requests against a service on this machine",
            .examples = "  tarn --record failed.json put -r photos /     record them when something fails\n"
                        "  tarn --endpoint http://127.0.0.1:7070 replay failed.json",
            .notes = "Sends the same methods, paths and sizes in the same order, one after the other, and "
                     "lists those whose status is another one. Bodies are zeros. Left out are logins, "
                     "links, file handles and what had not finished. The service wants users of the same "
                     "names.",
            .takes = {{"FILE", file.get(), "Recording", {.required = true, .words = Words::local}}},
            .run = [file](const Invocation& invocation) { repeat(invocation, *file); }};
}

} // namespace tarncli::verbs
