# Bash completion for zel8.
_zel8() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local chip=$cur
    COMPREPLY=()
    if [[ $cur == = ]]; then chip= prev=-mcpu; elif [[ $prev == = ]]; then prev=${COMP_WORDS[COMP_CWORD - 2]}; fi
    case $prev in
    -mcpu | header) COMPREPLY=($(compgen -W "$("$1" --list-chips 2>/dev/null)" -- "${chip^^}")) ;;
    -x) COMPREPLY=($(compgen -W "assembler assembler-with-cpp none" -- "$cur")) ;;
    -I) COMPREPLY=($(compgen -d -- "$cur")) ;;
    *)
        case $cur in
        -*) COMPREPLY=($(compgen -W "-E -c -S -x --chipinfo= -fsyntax-only -o -mcpu= -I -D -U -O0 -O -Os -g -Wall -Wextra -Werror -Wno- -W -w -MD -MMD -MF -MT -MP -Wa, -Wl, -j -v -### --annotate= --diagnostics= --color= --explain= --list-chips --print-search-dirs --version --help" -- "$cur")) ;;
        *) COMPREPLY=($(compgen -f -- "$cur") $([[ $COMP_CWORD == 1 ]] && compgen -W header -- "$cur")) ;;
        esac
        ;;
    esac
    [[ ${COMPREPLY[0]} == *[=,-] ]] && compopt -o nospace 2>/dev/null
}

complete -o filenames -F _zel8 zel8
