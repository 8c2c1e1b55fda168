# Bash completion for aszel8: options, the words of those that take words, chips that the installation knows, sources.

# Names of chips: the sections of the chip information files that the program would look into.
_aszel8_chips() {
    local program=$1 dat
    program=$(type -P -- "$program") && program=$(readlink -f -- "$program") || return
    for dat in "${program%/bin/*}/zel/dat" "${program%/bin/*}/dat" "${program%/*/bin/*}/zel/dat"; do
        [[ -d $dat ]] || continue
        sed -n 's/^[[:blank:]]*\[\([^][]*\)\].*/\1/p' "$dat"/ini/*.ini "$dat"/*.ini 2>/dev/null
        return
    done
}

# The words of a list: what stands behind the last separator of the current word is completed, and the rest is kept.
_aszel8_words() {
    local prefix=$1 value=$2 words=$3 last
    last=${value##*,}
    COMPREPLY=($(compgen -P "$prefix${value%"$last"}" -W "$words" -- "$last"))
}

_aszel8_files() {
    local prefix=$1 value=$2 pattern=$3 file
    local IFS=$'\n'
    COMPREPLY=()
    compopt -o filenames 2>/dev/null
    for file in $(compgen -f -- "$value"); do
        if [[ -d $file ]]; then
            compopt -o nospace 2>/dev/null
            COMPREPLY+=("$prefix$file/")
        elif [[ $file == $pattern ]]; then
            COMPREPLY+=("$prefix$file")
        fi
    done
}

_aszel8() {
    local cur=${COMP_LINE:0:COMP_POINT} breaks i
    cur=${cur##*[[:blank:]]}
    case $cur in
    -mcpu=*) COMPREPLY=($(compgen -P -mcpu= -W "$(_aszel8_chips "$1")" -- "$(tr '[:lower:]' '[:upper:]' <<<"${cur#*=}")")) ;;
    --opt=*) _aszel8_words --opt= "${cur#*=}" "debug space speed" ;;
    --diagnostics=*) COMPREPLY=($(compgen -P --diagnostics= -W "plain rich json sarif" -- "${cur#*=}")) ;;
    --warn=*) _aszel8_words --warn= "${cur#*=}" "all bank condition config deprecated inline location memory newline odd redefined size skip truncation" ;;
    --color=*) COMPREPLY=($(compgen -P --color= -W "auto always never" -- "${cur#*=}")) ;;
    --cmode=*) _aszel8_words --cmode= "${cur#*=}" "ost zcc zcce zmasm zmlink zmlib cxi vcc" ;;
    --qvdebug=*)
        _aszel8_words --qvdebug= "${cur#*=}" "default on out: sdb dwarf zip zip: alerts adt num: debug:
            assert:ignore assert:warning assert:error assert:fatal"
        ;;
    --cfgdata=*)
        _aszel8_files --cfgdata= "${cur#*=}" '*.cfgdata'
        [[ disabled == "${cur#*=}"* ]] && COMPREPLY+=(--cfgdata=disabled)
        ;;
    --annotate=* | --depfile=* | --edf=* | --opt-report=* | --udf=*) _aszel8_files "${cur%%=*}=" "${cur#*=}" '*' ;;
    --include=*) COMPREPLY=($(compgen -P --include= -d -- "${cur#*=}")) ;;
    -[Cc]?*) _aszel8_files "${cur:0:2}" "${cur:2}" '*.ini' ;;
    -[EeLlOo]?*) _aszel8_files "${cur:0:2}" "${cur:2}" '*' ;;
    -*)
        COMPREPLY=($(compgen -W "-mcpu= -ver= -auto_inline -no_inline -no_pa -no_trans
            -A -B -C -E -F -H -I -L -O -R -T -V -W -X
            --annotate= --cfgdata= --cmode= --color= --define= --depfile= --deptarget= --diagnostics= --disl= --edf= --emax= --errata= --explain= --help --include= --keywords --lib --object-name= --path-map= --source-name=
            --maxizel --msgdisable= --opt= --opt-report= --qvdebug=
            --udf= --ver --warn= --xinst" -- "$cur"))
        ;;
    @*) _aszel8_files @ "${cur#@}" '*' ;;
    *) _aszel8_files "" "$cur" '*.@(as|asm|AS|ASM)' ;;
    esac
    # No blank behind what goes on. A word that bash breaks at `=` or `:` is replaced behind the last break only.
    [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *[=:] ]] && compopt -o nospace 2>/dev/null
    breaks=${COMP_WORDBREAKS//[!=:@]/}
    if [[ $breaks && $cur == *["$breaks"]* ]]; then
        i=${cur%"${cur##*["$breaks"]}"}
        COMPREPLY=("${COMPREPLY[@]#"$i"}")
    fi
}

complete -F _aszel8 aszel8
