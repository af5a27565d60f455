#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarncli {

/// What of a folder is synchronised.
///
/// Rules are patterns as in a .gitignore. One without '/' stands for a name anywhere, one with '/' for a place below the
/// folder; `*`, `?` and `[…]` do not go beyond a name, `**` stands for any number of folders, and '/' at the end for
/// folders only. Of several that match, the last one counts, and what is in a folder that is left out is left out as
/// well.
class Filter {
public:
    struct Rule {
        std::string pattern;
        bool includes = false;
    };

    /// @param onlyIncluded  files that no rule matches are left out
    Filter() = default;

    Filter(std::vector<Rule> inOrder, bool onlyIncluded)
        : ruleList(std::move(inOrder)), onlyIncluding(onlyIncluded)
    {
    }

    /// @param below  UTF-8 names from the folder down, joined by '/'
    bool wants(const std::string& below, bool isFolder) const;

    /// Folders are of interest only for the files in them that are included.
    bool onlyIncludes() const { return onlyIncluding; }

    const std::vector<Rule>& rules() const { return ruleList; }

private:
    std::vector<Rule> ruleList;
    bool onlyIncluding = false;
};

/// The file in the local folder that rules are read from; it stays on this machine.
inline constexpr const char* ignoreFileName = ".tarnignore";

/// The rules in the text of an ignore file: one pattern a line, which is left out, or included again after a '!'. Empty
/// lines and those that begin with '#' mean nothing; '\' takes the meaning from the character behind it.
std::vector<Filter::Rule> rulesIn(std::string_view text);

} // namespace tarncli
