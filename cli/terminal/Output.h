#pragma once

#include "cli/terminal/Failure.h"
#include "cli/terminal/ProgressBar.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace tarncli {

/// Where everything goes: data to standard output, all else to standard error.
///
/// With --json a verb writes one JSON document to standard output, and a failure is one document
/// {"error": TEXT, "kind": WORD, "code": EXIT CODE} on standard error.
/// JSON carries names as they are; text for people carries them escaped.
class Output {
public:
    enum class Verbosity { quiet, normal, verbose };

    Output(bool asJson, Verbosity chosen);

    bool isJson() const { return json; }

    /// Whether `detail` tells anything.
    bool showsDetails() const { return !json && verbosity == Verbosity::verbose; }

    /// Bytes as they are, to standard output. When its reader is gone the program ends as every tool in a
    /// pipe does, by SIGPIPE. @throws Failure when they cannot be written
    void data(std::string_view bytes);

    /// The result of a verb: `text` for people, or the document with --json. A verb that was done in part
    /// writes it as well, before it fails.
    void result(const std::string& text, const nlohmann::json& document);

    /// Tells what was done; not with -q and not with --json.
    void message(const std::string& text);
    /// Tells it with -v only. On any thread.
    void detail(const std::string& text);
    /// Something the user should know although the verb goes on; also with -q.
    /// Not with --json, where the result lists it.
    void warning(const std::string& text);
    void error(const Failure& failure);

    ProgressBar& progress() { return bar; }

private:
    void say(const std::string& text);

    bool json;
    Verbosity verbosity;
    ProgressBar bar;
};

} // namespace tarncli
