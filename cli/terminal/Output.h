#pragma once

#include "cli/terminal/Failure.h"
#include "cli/terminal/ProgressBar.h"

#include <concepts>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace tarncli {

/// Where everything goes: data to standard output, all else to standard error.
///
/// With --json a verb writes one JSON document to standard output, and a failure is one document
/// {"error": TEXT, "kind": WORD, "code": EXIT CODE} on standard error.
/// With --json-lines a verb that lists writes one document a line, for each item; the other verbs as with --json.
/// JSON carries names as they are; text for people carries them escaped.
class Output {
public:
    enum class Verbosity { quiet, normal, verbose };
    enum class Format { text, json, jsonLines };

    Output(Format chosenFormat, Verbosity chosen);

    bool isJson() const { return format != Format::text; }

    /// A document for each item of a list, as it comes.
    bool isLines() const { return format == Format::jsonLines; }

    /// Whether `detail` tells anything.
    bool showsDetails() const { return !isJson() && verbosity == Verbosity::verbose; }

    /// Of the terminal that results go to; nothing: they go elsewhere.
    std::optional<int> columns() const;

    /// Bytes as they are, to standard output. When its reader is gone the program ends as every tool in a
    /// pipe does, by SIGPIPE. @throws Failure when they cannot be written
    void data(std::string_view bytes);

    /// The result of a verb: `text` for people, or the document with --json. A verb that was done in part
    /// writes it as well, before it fails.
    void result(const std::string& text, const nlohmann::json& document);

    /// A result that is a list: `text` for people; with --json `rest`, the items added as `key`; with --json-lines each
    /// item on a line of its own, then each that failed.
    void list(const std::string& text, const char* key, const nlohmann::json& items, nlohmann::json rest);
    void list(const std::string& text, const char* key, const nlohmann::json& items);

    /// A line of a list. @pre isLines()
    void line(const nlohmann::json& item);

    /// Tells what was done; not with -q and not with --json.
    void message(const std::string& text);
    /// Tells it with -v only. On any thread.
    void detail(const std::string& text);

    /// Likewise, of many things: what `text` gives is made only where it is told.
    template <std::invocable Text>
    void detail(Text text)
    {
        if (showsDetails()) detail(std::string(text()));
    }

    /// Something the user should know although the verb goes on; also with -q.
    /// Not with --json, where the result lists it. On any thread.
    void warning(const std::string& text);
    void error(const Failure& failure);

    ProgressBar& progress() { return bar; }

private:
    void say(const std::string& text);

    Format format;
    Verbosity verbosity;
    ProgressBar bar;
};

} // namespace tarncli
