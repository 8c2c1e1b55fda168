# Bash completion for zellink: options, objects, archives, link files.

_zellink() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    if [[ $cur == = || ${COMP_WORDS[COMP_CWORD - 1]} == = ]]; then   # bash parts the word there: the value, a file
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -f -- "${cur#=}"))
        return
    fi
    case $cur in
    -*)
        COMPREPLY=($(compgen -W "-o -mcpu= --annotate= --callgraph --check --chipinfo= --class= --format=hex --format=bin --format=elf --gc --help --input-name= --keep= --output-name= --listing --map= --psect=
            --quiet --vectors --vectors= --ver" -- "$cur"))
        [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
        ;;
    @*) COMPREPLY=($(compgen -P @ -f -- "${cur#@}")) ;;
    *)
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -d -- "$cur") $(compgen -f -- "$cur" | grep -E '\.(obj|a)$'))
        ;;
    esac
}

complete -F _zellink zellink
