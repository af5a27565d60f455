#include "cli/HelpFormatter.h"

#include "cli/terminal/TerminalSize.h"
#include "cli/terminal/Text.h"

#include <algorithm>
#include <sstream>
#include <unistd.h>

namespace tarncli {

namespace {

constexpr int most = 80;
/// With fewer, descriptions stand below the names.
constexpr int wide = 70;
constexpr std::size_t indentBelow = 6;
constexpr std::size_t verbWidth = 14;

} // namespace

HelpFormatter::HelpFormatter() : columns(std::min(terminalColumns(STDOUT_FILENO).value_or(most), most))
{
    if (columns < wide) column_width(indentBelow);
    label("Positionals", "Arguments");
    label("SUBCOMMAND", "VERB");
}

std::string HelpFormatter::make_description(const CLI::App* app) const
{
    return folded(app->get_description(), 0) + "\n";
}

/// The value as the user writes it. What else the parser knows of it ("N:UINT in [1 - 64]") stands in its errors, and
/// what is required in the usage.
std::string HelpFormatter::make_option_opts(const CLI::Option* option) const
{
    const bool isList = option->get_expected_max() == CLI::detail::expected_max_vector_size;
    if (option->get_positional()) return isList ? "..." : "";
    const auto type = option->get_type_name();
    return option->get_type_size() == 0 ? "" : " " + type.substr(0, type.find(':'));
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const
{
    return folded(option->get_description(), get_column_width());
}

std::string HelpFormatter::make_subcommand(const CLI::App* subcommand) const
{
    const auto indent = std::min(get_column_width(), verbWidth);
    std::ostringstream out;
    CLI::detail::format_help(out, subcommand->get_display_name(true),
                             folded(subcommand->get_description(), indent), indent);
    return out.str();
}

std::string HelpFormatter::make_footer(const CLI::App* app) const
{
    std::istringstream footer(app->get_footer());
    std::string result;
    for (std::string line; std::getline(footer, line);)
        result += (line.starts_with(' ') ? line : folded(line, 0)) + "\n";
    return result;
}

/// Without the indent: the parser indents what follows a line break.
std::string HelpFormatter::folded(std::string_view text, std::size_t indent) const
{
    std::string result;
    for (const auto& line : foldedToWidth(text, columns - static_cast<int>(indent)))
        result += (result.empty() ? "" : "\n") + line;
    return result;
}

} // namespace tarncli
