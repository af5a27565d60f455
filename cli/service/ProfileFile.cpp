#include "cli/service/ProfileFile.h"

#include "cli/machine/PrivateFile.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <algorithm>
#include <sstream>
#include <toml++/toml.h>

namespace tarncli {

namespace fs = std::filesystem;

namespace {

constexpr const char* plainLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";

std::string quoted(const std::string& text)
{
    std::ostringstream out;
    out << toml::value<std::string>(text);
    return out.str();
}

void replace(const fs::path& file, const std::string& text)
{
    Profiles::parse(text, file);
    // A link is kept, and what it leads to is replaced: some keep their configuration elsewhere.
    writePrivateFile(fs::weakly_canonical(file), text);
}

/// `text` without the lines first to last, counted from 1.
std::string withoutLines(const std::string& text, std::size_t first, std::size_t last)
{
    std::istringstream in(text);
    std::string kept;
    std::string line;
    for (std::size_t number = 1; std::getline(in, line); ++number)
        if (number < first || number > last) kept += line + "\n";
    return kept;
}

} // namespace

void addProfile(const fs::path& file, const std::string& name, const Profile& profile)
{
    auto text = readConfiguration(file);
    if (name.empty() || name.find_first_not_of(plainLetters) != std::string::npos)
        throw usageError("A profile's name has letters, digits, '-' and '_' only.");
    if (name == localProfile || Profiles::parse(text, file).byName.contains(name))
        throw Failure(ExitCode::conflict,
                      "There is a profile \"" + name + "\" already; change it in " + file.string() + ".");
    if (!text.empty() && !text.ends_with('\n')) text += '\n';
    text += (text.empty() ? "" : "\n") + ("[profiles." + name + "]\n");
    const std::pair<const char*, std::string> keys[] = {{"endpoint", profile.endpoint},
                                                        {"user", profile.user},
                                                        {"ca_file", profile.caFile},
                                                        {"proxy", profile.proxy},
                                                        {"token_command", profile.tokenCommand},
                                                        {"folder", profile.folder}};
    for (const auto& [key, value] : keys)
        if (!value.empty()) text += std::string(key) + " = " + quoted(value) + "\n";
    if (profile.encodeNames) text += "encode_names = true\n";
    if (profile.insecure) text += "insecure = true\n";
    replace(file, text);
}

void useProfile(const fs::path& file, const std::string& name)
{
    auto text = readConfiguration(file);
    const auto known = Profiles::parse(text, file);
    if (name != localProfile && !known.byName.contains(name))
        throw Failure(ExitCode::notFound,
                      "There is no profile \"" + escaped(name) + "\"; `tarn profile list` shows them.");
    const auto tree = toml::parse(text);
    if (const auto* old = tree.get("default_profile"))
        text = withoutLines(text, old->source().begin.line, old->source().end.line);
    replace(file, "default_profile = " + quoted(name) + "\n" + text); // keys of a table would follow it
}

} // namespace tarncli
