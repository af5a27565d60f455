#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>

namespace tarncli {

/// Help as the parser makes it, folded to fit into 80 columns, or a terminal that has fewer. What is indented is left
/// as it is, so that examples can be copied.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter();

    std::string make_description(const CLI::App* app) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
    std::string make_subcommand(const CLI::App* subcommand) const override;
    std::string make_footer(const CLI::App* app) const override;

private:
    std::string folded(std::string_view text, std::size_t indent) const;

    int columns;
};

} // namespace tarncli
