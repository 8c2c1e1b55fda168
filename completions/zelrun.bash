# Bash completion for zelrun: options ahead of the source, and the source.

_zelrun() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    case $cur in
    -*)
        COMPREPLY=($(compgen -W "--compare --help --lines --mcpu --steps" -- "$cur"))
        ;;
    *)
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -d -- "$cur") $(compgen -f -- "$cur" | grep -E '\.(as|asm|s)$'))
        ;;
    esac
}

complete -F _zelrun zelrun
