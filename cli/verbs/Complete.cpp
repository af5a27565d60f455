#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/verbs/CommandTree.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

/// What may stand at the end of an unfinished command line.
class Candidates {
public:
    Candidates(const Invocation& invoked, std::vector<std::string> typed)
        : commands(invoked.commands), invocation(invoked), words(std::move(typed)), last(words.back())
    {
        words.pop_back();
        // Whoever presses a key waits for it.
        invocation.connection.timeout = 3;
        invocation.connection.retries = 0;
        read();
    }

    std::string text() const { return (files ? ":files\n" : "") + lines; }

private:
    void read()
    {
        const Option* open = nullptr; // waits for its value
        bool dashes = true;           // until "--"
        for (const auto& word : words) {
            if (open != nullptr)
                take(*std::exchange(open, nullptr), word);
            else if (dashes && word == "--")
                dashes = false;
            else if (dashes && word.starts_with('-') && word.size() > 1)
                open = waiting(word);
            else if (verb == nullptr)
                verb = findVerb(commands, word);
            else
                ++arguments;
        }
        if (open != nullptr) return addValues(*open, last, "");
        if (dashes && last.starts_with('-')) return addOptions();
        if (verb == nullptr) return addVerbs();
        addArguments();
    }

    const Option* find(std::string_view name) const
    {
        const auto isMeant = [&](const auto& option) { return isDashed(option) && isNamed(option, name); };
        if (verb != nullptr)
            if (const auto own = std::ranges::find_if(verb->takes, isMeant); own != verb->takes.end())
                return &*own;
        const auto found = std::ranges::find_if(commands.options, isMeant);
        return found == commands.options.end() ? nullptr : &*found;
    }

    /// The option whose value is the next word; null when it takes none or has it.
    const Option* waiting(const std::string& word)
    {
        const auto equals = word.find('=');
        const auto* option = find(word.substr(0, equals));
        if (option == nullptr || !takesValue(*option)) return nullptr;
        if (equals == std::string::npos) return option;
        take(*option, word.substr(equals + 1));
        return nullptr;
    }

    /// Which service is asked for remote paths.
    void take(const Option& option, const std::string& value)
    {
        auto& service = invocation.connection.service;
        const std::pair<const char*, std::string*> known[] = {{"--endpoint", &service.endpoint},
                                                              {"--profile", &service.profile},
                                                              {"--ca-file", &service.caFile},
                                                              {"--proxy", &service.proxy}};
        for (const auto& [name, target] : known)
            if (isNamed(option, name)) *target = value;
    }

    void add(const std::string& candidate, const std::string& meaning = "")
    {
        // One line each, and nothing that commands a terminal.
        if (!candidate.starts_with(last) || escaped(candidate).size() != candidate.size()) return;
        lines += candidate + (meaning.empty() ? "" : "\t" + meaning) + "\n";
    }

    void addVerbs()
    {
        for (const auto& each : commands.verbs)
            if (!each.isHidden) add(each.name, each.summary);
    }

    void addOptions()
    {
        const auto equals = last.find('=');
        if (equals != std::string::npos) {
            if (const auto* option = find(last.substr(0, equals)))
                addValues(*option, last.substr(equals + 1), last.substr(0, equals + 1));
            return;
        }
        const auto addAll = [&](const std::vector<Option>& options) {
            for (const auto& option : options)
                for (const auto& name : namesOf(option))
                    if (isDashed(option) && name.starts_with("--")) add(name, option.help);
        };
        if (verb != nullptr) addAll(verb->takes);
        addAll(commands.options);
        add("--help", "Explain it");
    }

    /// @param before  what stands before the value in the same word
    void addValues(const Option& option, const std::string& begun, const std::string& before)
    {
        for (const auto& choice : option.rules.choices)
            add(before + choice);
        if (option.rules.words == Words::verb) addVerbs();
        if (option.rules.words == Words::local) files = true;
        if (option.rules.words == Words::remote) addRemote(begun);
    }

    void addArguments()
    {
        std::vector<const Option*> takes;
        for (const auto& option : verb->takes)
            if (!isDashed(option)) takes.push_back(&option);
        if (takes.empty()) return;
        const auto& option = *takes[std::min(arguments, takes.size() - 1)];
        const bool first = arguments == 0;
        switch (option.rules.words) {
        case Words::either:
            return addEither();
        case Words::localThenRemote:
            return first ? addLocal() : addEither();
        case Words::remoteThenLocal:
            return first ? addRemote(last) : addEither();
        default:
            return addValues(option, last, "");
        }
    }

    void addLocal() { files = true; }

    void addEither()
    {
        addLocal();
        if (last.find('/') != std::string::npos) addRemote(last);
    }

    /// What is in the folder that has been typed. Whatever goes wrong, there is nothing to complete.
    void addRemote(const std::string& begun)
    {
        const auto slash = begun.rfind('/');
        const bool isRelative = slash == std::string::npos && defaultFolder() != "/";
        if (slash == std::string::npos && !isRelative) return begun.empty() ? add("/") : void();
        const auto above = isRelative ? "" : begun.substr(0, slash + 1);
        try {
            const auto folder = addressable(isRelative ? defaultFolder() : above);
            auto connection = invocation.connect(1);
            const auto listing = connection.call([&] { return requestListing(connection, folder); });
            for (const auto& child : listing->folders)
                add(above + decodedName(toUtf8(child.name)) + "/");
            for (const auto& file : listing->files)
                add(above + decodedName(toUtf8(file.name)));
        } catch (const std::exception&) {
            return;
        }
    }

    const CommandTree& commands;
    Invocation invocation;
    std::vector<std::string> words;
    std::string last; ///< the word that is being typed
    const Verb* verb = nullptr;
    std::size_t arguments = 0; ///< of the verb, before the last
    std::string lines;
    bool files = false;
};

} // namespace

Verb complete()
{
    const auto words = std::make_shared<std::vector<std::string>>();
    return {.name = "__complete",
            .summary = "Tell what may stand at the end of a command line",
            .examples = "  tarn __complete -- ls /pho",
            .notes = "One candidate per line, with its meaning behind a tab; a first line \":files\" asks "
                     "for the names of local files as well.",
            .takes = {{"WORD", words.get(), "What has been typed behind `tarn`", {.required = true}}},
            .run =
                [words](const Invocation& invocation) {
                    const auto text = Candidates(invocation, *words).text();
                    invocation.out.result(text, {{"candidates", text}});
                },
            .isHidden = true};
}

} // namespace tarncli::verbs
