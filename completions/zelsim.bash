# Bash completion for zelsim: options, programs, objects, archives.

_zelsim() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    if [[ $cur == = || ${COMP_WORDS[COMP_CWORD - 1]} == = ]]; then   # bash parts the word there: the value, a file
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -f -- "${cur#=}"))
        return
    fi
    case $cur in
    -*)
        COMPREPLY=($(compgen -W "-mcpu= --chipinfo= --coverage= --debug --exit= --help --irq= --limit= --port= --profile --quiet
            --script= --start= --stdin= --stdout= --strict --trace --until= --vcd= --vectors --ver --xinst" -- "$cur"))
        [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
        ;;
    *)
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -d -- "$cur") $(compgen -f -- "$cur" | grep -E '\.(hex|bin|elf|obj|a)$'))
        ;;
    esac
}

complete -F _zelsim zelsim
