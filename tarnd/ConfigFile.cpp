#include "tarnd/ConfigFile.h"

#include "tarnd/ServeFlags.h"

#include <filesystem>
#include <set>
#include <sstream>
#include <toml++/toml.h>

namespace tarnd {

namespace {

const std::set<std::string, std::less<>> paths = {"data",     "tls-cert",  "tls-key",
                                                  "log-file", "audit-log", "fault-script"};

CLI::ConfigError fileError(const std::string& file, const toml::source_region& where, const std::string& what)
{
    return CLI::ConfigError(file + ", line " + std::to_string(where.begin.line) + ": " + what);
}

/// As it would stand on the command line; empty for what cannot stand there.
std::string textOf(const toml::node& value)
{
    if (const auto text = value.value_exact<std::string>()) return *text;
    if (const auto number = value.value_exact<std::int64_t>()) return std::to_string(*number);
    if (const auto flag = value.value_exact<bool>()) return *flag ? "true" : "false";
    return {};
}

/// The message of a refused value begins with the option's name on the command line.
std::string withoutDashes(std::string message)
{
    message.erase(0, message.find_first_not_of('-'));
    return message;
}

void apply(const std::string& file, const std::string& key, const toml::node& value, CLI::Option& option)
{
    auto text = textOf(value);
    if (text.empty()) throw fileError(file, value.source(), key + " must be text, a number, true or false.");
    if (paths.contains(key)) text = (std::filesystem::path(file).parent_path() / text).string();
    if (option.count() > 0) return; // the command line wins
    try {
        option.add_result(text);
        option.run_callback();
    } catch (const CLI::ParseError& error) {
        throw fileError(file, value.source(), withoutDashes(error.what()) + ".");
    }
}

/// Does not read what it reads: serves only to know the keys.
bool isKnown(const std::string& key)
{
    CLI::App serve;
    ServeOptions options;
    addStoreOptions(serve, options.store);
    addServeOptions(serve, options);
    return key != "config" && key != "help" && serve.get_option_no_throw("--" + key) != nullptr;
}

} // namespace

void applyConfigFile(const std::string& file, CLI::App& command)
{
    // A container makes one where the file that it is to show is missing, and it reads like an empty file.
    if (std::filesystem::is_directory(file)) throw CLI::ConfigError(file + " is a directory.");
    try {
        for (const auto& [name, value] : toml::parse_file(file)) {
            const std::string key(name.str());
            if (!isKnown(key))
                throw fileError(file, name.source(),
                                "there is no \"" + key + "\"; the keys are the options of tarnd serve.");
            if (auto* option = command.get_option_no_throw("--" + key)) apply(file, key, value, *option);
        }
    } catch (const toml::parse_error& error) {
        if (error.source().begin.line == 0) throw CLI::ConfigError("Could not read " + file + ".");
        throw fileError(file, error.source(), std::string(error.description()) + ".");
    }
}

void checkConfigFile(const std::string& file)
{
    CLI::App serve;
    ServeOptions options;
    addStoreOptions(serve, options.store);
    addServeOptions(serve, options);
    serve.get_option("--data")->required(false);             // may be left to the command line
    serve.parse(std::vector<std::string>{file, "--config"}); // from the back
}

} // namespace tarnd
