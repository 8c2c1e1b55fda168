# Fish completion for aszel8 and its tools: the options as each tells them in its own help, chips, and files.

function __zel8_options
    set -l tool (commandline -opc)[1]
    if string match -q -- '-mcpu=*' (commandline -ct)
        zel8 --list-chips 2>/dev/null | string replace -r '^' -- '-mcpu='
        return
    end
    # "  -a, --b=FILE   what it is" gives a line for each option, with a tab ahead of what it is.
    $tool --help 2>/dev/null | awk '
        /^  [-@]/ {
            line = substr($0, 3); about = ""
            if (match(line, /   *[^ -]/)) { about = substr(line, RSTART + RLENGTH - 1); line = substr(line, 1, RSTART - 1) }
            n = split(line, options, /, /)
            for (i = 1; i <= n; i++)
                if (match(options[i], /^-[-A-Za-z0-9_#]*=?/))
                    print substr(options[i], 1, RLENGTH) "\t" about
        }'
end

function __zel8_words
    if test (count (commandline -opc)) = 1
        echo header\t'the include file of a chip'
    else if test (commandline -opc)[2] = header
        zel8 --list-chips 2>/dev/null
    end
end

complete -c zel8 -n 'not string match -q -- "-*" (commandline -ct)' -a '(__zel8_words)'
for tool in aszel8 zel8 zellink zelobj zelrun zelsim
    complete -c $tool -n 'string match -q -- "-*" (commandline -ct)' -f -a '(__zel8_options)'
end
