# Bash completion for zelobj: options, objects, archives, relocation listings, linked programs.

_zelobj() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    case $cur in
    -*)
        COMPREPLY=($(compgen -W "--help --no-disassembly --offsets --sizes --symbols --symbols=address --verify --wide" -- "$cur"))
        ;;
    *)
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -d -- "$cur") $(compgen -f -- "$cur" | grep -E '\.(obj|a|rlf|elf)$'))
        ;;
    esac
}

complete -F _zelobj zelobj
