#include "cli/machine/SystemError.h"
#include "cli/terminal/Version.h"
#include "cli/verbs/CommandTree.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string verb;
    std::string folder;
};

/// Text as roff shows it: nothing in it is a request, and a '-' can be copied into a shell.
std::string plain(std::string_view text)
{
    std::string result;
    bool lineBegins = true;
    for (const char c : text) {
        if (lineBegins && (c == '.' || c == '\'')) result += "\\&";
        if (c == '-' || c == '\\')
            result += c == '-' ? "\\-" : "\\e";
        else
            result += c;
        lineBegins = c == '\n';
    }
    return result;
}

std::string heading(const std::string& title)
{
    return ".SH " + title + "\n";
}

std::string titleLine(const std::string& page)
{
    auto capitals = page;
    std::ranges::transform(capitals, capitals.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return ".TH " + plain(capitals) + " 1 \"\" \"" + versionText + "\" \"User Commands\"\n";
}

std::string optionsText(const std::vector<Option>& options)
{
    std::string text;
    for (const auto& option : options) {
        std::string names;
        for (const auto& name : namesOf(option))
            names += (names.empty() ? "" : ", ") + name;
        const std::string value = option.rules.valueName;
        text += ".TP\n\\fB" + plain(names) + "\\fR" + (value.empty() ? "" : " \\fI" + plain(value) + "\\fR") +
                "\n" + plain(option.help) + "\n";
    }
    return text;
}

/// Lines as they are.
std::string literal(std::string_view text)
{
    while (text.starts_with('\n'))
        text.remove_prefix(1);
    return ".nf\n" + plain(text) + "\n.fi\n";
}

std::string synopsis(const Verb& verb)
{
    std::string text = "\\fBtarn " + plain(verb.name) + "\\fR";
    if (std::ranges::any_of(verb.takes, isDashed)) text += " [\\fIOPTIONS\\fR]";
    for (const auto& option : verb.takes) {
        if (isDashed(option)) continue;
        const bool several = std::holds_alternative<std::vector<std::string>*>(option.target);
        const auto name = "\\fI" + plain(option.names) + "\\fR" + (several ? "..." : "");
        text += option.rules.required ? " " + name : " [" + name + "]";
    }
    return text + "\n";
}

/// Filled by roff; nothing when there is nothing to tell.
std::string description(const Verb& verb)
{
    const std::string_view notes = verb.notes;
    if (notes.empty()) return {};
    std::string text;
    for (const char c : plain(notes))
        text += c == '\n' ? "\n.PP\n" : std::string(1, c);
    return heading("DESCRIPTION") + text + "\n";
}

std::string pageOf(const Verb& verb)
{
    const auto page = std::string("tarn-") + verb.name;
    return titleLine(page) + heading("NAME") + plain(page) + " \\- " + plain(verb.summary) + "\n" +
           heading("SYNOPSIS") + synopsis(verb) + description(verb) + heading("OPTIONS") +
           optionsText(verb.takes) + ".PP\nThose of \\fBtarn\\fR(1) can stand behind the verb as well.\n" +
           heading("EXAMPLES") + literal(verb.examples) + heading("SEE ALSO") + "\\fBtarn\\fR(1)\n";
}

std::string mainPage(const CommandTree& commands)
{
    std::string verbs;
    for (const auto& verb : commands.verbs)
        if (!verb.isHidden)
            verbs += ".TP\n\\fBtarn\\-" + plain(verb.name) + "\\fR(1)\n" + plain(verb.summary) + "\n";
    return titleLine("tarn") + heading("NAME") + "tarn \\- keep your files in a Tarn service\n" +
           heading("SYNOPSIS") + "\\fBtarn\\fR [\\fIOPTIONS\\fR] \\fIVERB\\fR ...\n" + heading("VERBS") +
           verbs + heading("OPTIONS") + optionsText(commands.options) + heading("DESCRIPTION") +
           literal(commands.epilogue);
}

void write(const fs::path& file, const std::string& text)
{
    std::ofstream out(file);
    out << text;
    out.close();
    if (!out) throwErrno("Could not write", file);
}

void print(const Invocation& invocation, const Options& options)
{
    const auto& commands = invocation.commands;
    if (options.folder.empty()) {
        static_cast<void>(commands.help(options.verb)); // refuses what is no verb
        const auto* verb = findVerb(commands, options.verb);
        const auto text = verb == nullptr ? mainPage(commands) : pageOf(*verb);
        return invocation.out.result(text, {{"page", text}});
    }
    const fs::path folder = options.folder;
    std::error_code told; // by the first page
    fs::create_directories(folder, told);
    write(folder / "tarn.1", mainPage(commands));
    for (const auto& verb : commands.verbs)
        if (!verb.isHidden) write(folder / (std::string("tarn-") + verb.name + ".1"), pageOf(verb));
    invocation.out.result("", {{"folder", options.folder}});
}

} // namespace

Verb man()
{
    const auto options = std::make_shared<Options>();
    return {.name = "man",
            .summary = "Print a page of the manual",
            .examples = "  tarn man put | man -l -\n"
                        "  tarn man --into ~/.local/share/man/man1",
            .takes = {{"VERB", &options->verb, "The verb; none: the page of all", {.words = Words::verb}},
                      {"--into",
                       &options->folder,
                       "Write all pages as files into a folder",
                       {.valueName = "FOLDER", .words = Words::local}}},
            .run = [options](const Invocation& invocation) { print(invocation, *options); }};
}

} // namespace tarncli::verbs
