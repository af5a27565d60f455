#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

// The scripts only ask `tarn __complete` and hand on what it says: what there is to complete stands in the verbs.

/// Bash breaks words at ':' and '=', and expects only what is behind the last one.
constexpr const char* bash = R"(# Completion of tarn for bash.
_tarn() {
    local -a words=()
    local i word line value before
    for ((i = 1; i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if ((${#words[@]})) && [[ $word == [:=]* || ${words[-1]} == *[:=] ]]; then
            words[-1]+=$word
        else
            words+=("$word")
        fi
    done
    for i in "${!words[@]}"; do
        word=${words[i]#[\"\']}
        words[i]=${word//\\/}
    done
    word=${words[-1]}
    before=${word%"${word##*[:=]}"}
    COMPREPLY=()
    while IFS= read -r line; do
        if [[ $line == :files ]]; then
            while IFS= read -r value; do COMPREPLY+=("$value"); done < <(compgen -f -- "$word")
            compopt -o filenames 2>/dev/null
            continue
        fi
        value=${line%%$'\t'*}
        [[ $value == */ ]] && compopt -o nospace 2>/dev/null
        [[ $value == */* ]] && compopt -o filenames 2>/dev/null
        COMPREPLY+=("${value#"$before"}")
    done < <(tarn __complete -- "${words[@]}" 2>/dev/null)
}
complete -F _tarn tarn
)";

constexpr const char* zsh = R"(#compdef tarn
# Completion of tarn for zsh.
_tarn() {
    local -a lines folders values shown
    local line value files
    lines=("${(@f)$(tarn __complete -- "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)}")
    for line in $lines; do
        value=${line%%$'\t'*}
        if [[ $line == :files ]]; then
            files=1
        elif [[ $value == */ ]]; then
            folders+=("$value")
        else
            values+=("$value")
            shown+=("${line/$'\t'/  }")
        fi
    done
    (( $#folders )) && compadd -S '' -- $folders
    (( $#values )) && compadd -l -d shown -- $values
    [[ -n $files ]] && _files
    return 0
}
if [[ $funcstack[1] == _tarn ]]; then
    _tarn "$@"
else
    compdef _tarn tarn
fi
)";

constexpr const char* fish = R"(# Completion of tarn for fish.
function __tarn_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    for line in (tarn __complete -- $words[2..-1] "$current" 2>/dev/null)
        if test "$line" = :files
            __fish_complete_path "$current"
        else
            echo $line
        end
    end
end
complete -c tarn -f -a '(__tarn_complete)'
)";

} // namespace

Verb completion()
{
    const auto shell = std::make_shared<std::string>();
    return {.name = "completion",
            .summary = "Print what makes a shell complete verbs, options and remote paths",
            .examples = "  source <(tarn completion bash)       now; or in ~/.bashrc\n"
                        "  tarn completion zsh >~/.zfunc/_tarn  in a folder of $fpath\n"
                        "  tarn completion fish >~/.config/fish/completions/tarn.fish",
            .takes = {{"SHELL",
                       shell.get(),
                       "bash, zsh or fish",
                       {.required = true, .choices = {"bash", "zsh", "fish"}}}},
            .run = [shell](const Invocation& invocation) {
                const std::string script = *shell == "bash" ? bash : *shell == "zsh" ? zsh : fish;
                invocation.out.result(script, {{"shell", *shell}, {"script", script}});
            }};
}

} // namespace tarncli::verbs
