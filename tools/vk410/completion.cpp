// SPDX-License-Identifier: MIT
#include "tools/vk410/completion.h"
#include "tools/vk410/optiontree.h"
#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace verbs {

namespace {

constexpr char scenes[] = "demo band zerospan df";

// The words that the table below does not know. A colon and an equals sign are words of their own to bash.
constexpr char script[] = R"bash(
_vk410()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} verb= word i
    COMPREPLY=()
    [[ $cur == = ]] && cur=
    [[ $prev == = ]] && prev=${COMP_WORDS[COMP_CWORD - 2]}
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        [[ $word == --config ]] && { ((++i)); continue; }
        [[ " $_vk410_verbs " == *" $word "* ]] && { verb=$word; break; }
    done
    # sim:SCENE
    if [[ $cur == : && $prev == sim ]]; then
        COMPREPLY=($_vk410_scenes)
        return
    fi
    if [[ $prev == : && ${COMP_WORDS[COMP_CWORD - 2]} == sim ]]; then
        COMPREPLY=($(compgen -W "$_vk410_scenes" -- "$cur"))
        return
    fi
    if [[ $prev == -* ]]; then
        case $(_vk410_value "$verb" "$prev") in
        '') ;;
        FILE | OUT | META)
            _vk410_files
            return ;;
        *'|'*)
            COMPREPLY=($(compgen -W "$(_vk410_value "$verb" "$prev" | tr '|' ' ')" -- "$cur"))
            return ;;
        *) return ;;
        esac
    fi
    if [[ -z $verb ]]; then
        COMPREPLY=($(compgen -W "$_vk410_verbs --config --help --version" -- "$cur"))
        return
    fi
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(_vk410_options "$verb") --config --help" -- "$cur"))
        return
    fi
    case $(_vk410_positional "$verb") in
    SOURCE)
        _vk410_files
        COMPREPLY+=($(compgen -W "udp:// tcp:// sim:" -- "$cur"))
        ;;
    SCENE)
        _vk410_files
        COMPREPLY+=($(compgen -W "$_vk410_scenes" -- "$cur"))
        ;;
    FILE) _vk410_files ;;
    VERB) COMPREPLY=($(compgen -W "$_vk410_verbs" -- "$cur")) ;;
    esac
}

_vk410_files()
{
    compopt -o filenames 2>/dev/null
    local IFS=$'\n'
    COMPREPLY=($(compgen -f -- "$cur"))
}

complete -F _vk410 vk410
)bash";

// "-o" and "--output" both.
std::string patternOf(const OptionInfo& option)
{
    std::string pattern = "--" + option.key;
    for (const std::string& name : option.option->get_snames())
        pattern += "|-" + name;
    return pattern;
}

// A function that prints one text for each verb.
template <typename Text>
std::string functionOf(const char* name, const std::vector<CLI::App*>& verbs, const Text& text)
{
    std::string function = fmt::format("\n{}()\n{{\n    case $1 in\n", name);
    for (CLI::App* const verb : verbs) {
        if (const std::string body = text(optionsOf(*verb)); !body.empty())
            function += fmt::format("    {}) {} ;;\n", verb->get_name(), body);
    }
    return function + "    esac\n}\n";
}

std::string optionsText(const std::vector<OptionInfo>& options)
{
    std::string names;
    for (const OptionInfo& option : options)
        names += option.isPositional ? "" : fmt::format("{}--{}", names.empty() ? "" : " ", option.key);
    return names.empty() ? "" : fmt::format("echo '{}'", names);
}

std::string positionalText(const std::vector<OptionInfo>& options)
{
    const auto first = std::ranges::find_if(options, &OptionInfo::isPositional);
    return first == options.end() ? "" : fmt::format("echo {}", first->value);
}

// What an option's value is called, or its choices; "VALUE" where it has no name.
std::string valuesText(const std::vector<OptionInfo>& options)
{
    std::string cases;
    for (const OptionInfo& option : options) {
        if (!option.isPositional && !option.isFlag)
            cases += fmt::format(" {}) echo '{}' ;;", patternOf(option),
                                 option.value.empty() ? "VALUE" : option.value);
    }
    return cases.empty() ? "" : "case $2 in" + cases + " --config) echo FILE ;; esac";
}

} // namespace

std::string bashCompletion(CLI::App& program)
{
    const std::vector<CLI::App*> verbs = verbsOf(program);
    std::string names;
    for (const CLI::App* const verb : verbs)
        names += (names.empty() ? "" : " ") + verb->get_name();
    std::string text = "# bash completion for vk410; 'vk410 help --completion bash' writes it\n";
    text += fmt::format("_vk410_verbs='{}'\n_vk410_scenes='{}'\n", names, scenes);
    text += functionOf("_vk410_options", verbs, optionsText);
    text += functionOf("_vk410_positional", verbs, positionalText);
    // Also where no verb is there yet.
    std::string values = functionOf("_vk410_value", verbs, valuesText);
    values.insert(values.rfind("    esac"), "    *) case $2 in --config) echo FILE ;; esac ;;\n");
    return text + values + script;
}

} // namespace verbs
