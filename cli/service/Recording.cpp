#include "cli/service/Recording.h"

#include "cli/machine/FileText.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

namespace tarncli {

namespace {

/// Nothing for what cannot be repeated.
std::optional<RecordedRequest> requestFrom(const nlohmann::json& told)
{
    RecordedRequest request;
    request.id = told.at("id");
    request.method = told.at("method");
    std::ranges::transform(request.method, request.method.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (request.method != "get" && request.method != "put" && request.method != "delete") return {};
    const std::string path = told.at("path"), parameters = told.at("parameters");
    request.target = path + (parameters.empty() ? "" : "?" + parameters);
    // A session is this program's own; and "…" stands for what was hidden or cut.
    const bool isSendable =
        std::ranges::all_of(request.target, [](unsigned char c) { return c > ' ' && c < 0x7f; });
    if (!isSendable || !path.starts_with("/service/v1/") || path == "/service/v1/login" ||
        path == "/service/v1/logout")
        return {};
    request.isFinished = told.contains("status");
    // Of a reply that was cut, the status is that of a promise which was not kept.
    if (request.isFinished && !told.contains("failure")) request.status = told.at("status");
    const auto& attempts = told.at("attempts");
    if (!attempts.empty()) request.size = attempts.back().at("bytesSent");
    return request;
}

} // namespace

Recording Recording::load(const std::filesystem::path& file)
{
    const auto text = readFile(file);
    try {
        const auto document = nlohmann::json::parse(text);
        if (document.at("format") != "tarn requests" || document.at("version") != 1)
            throw usageError("\"" + escaped(file.string()) + "\" is a recording of another version.");
        Recording recording;
        for (const auto& told : document.at("requests")) {
            auto request = requestFrom(told);
            if (request)
                recording.requests.push_back(std::move(*request));
            else
                ++recording.leftOut;
        }
        std::ranges::sort(recording.requests, {}, &RecordedRequest::id);
        return recording;
    } catch (const nlohmann::json::exception&) {
        throw usageError("\"" + escaped(file.string()) + "\" is not a recording of requests.");
    }
}

} // namespace tarncli
