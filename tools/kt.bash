# bash completion for kt: commands, subcommands, options, and the names of
# URL components where a command takes one. Installed as
# share/bash-completion/completions/kt; `source` it to try it by hand.

_kt() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local components="scheme authority domain user password host service path params query fragment"
    local words=""
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        COMPREPLY=($(compgen -W "base64 demo fetch hex serve url version help --help" -- "$cur"))
        return
    fi
    # Values: a file or folder where one is wanted, nothing for numbers.
    case $prev in
        -o | --output | --url-file) COMPREPLY=($(compgen -f -- "$cur")); return ;;
        --root) COMPREPLY=($(compgen -d -- "$cur")); return ;;
        -w | --wrap | --timeout | --bind | --port | --max-connections | --pair | --kv) return ;;
        --append) words="path= query=" ;;
        --trim) words="query=" ;;
    esac
    if [[ -z $words ]]; then
        case ${COMP_WORDS[1]} in
            base64 | hex)
                if [[ $cur != -* ]]; then
                    COMPREPLY=($(compgen -f -- "$cur"))
                    return
                fi
                words="-d --decode -i --ignore-garbage -w --wrap -h --help"
                [[ ${COMP_WORDS[1]} == hex ]] && words+=" --lower"
                ;;
            fetch) words="-o --output --head --timeout -h --help" ;;
            serve) words="--root --echo --bind --port --max-connections --timeout -h --help" ;;
            url)
                if ((COMP_CWORD == 2)); then
                    words="split get set query encode decode resolve normalize check -h --help"
                else
                    case ${COMP_WORDS[2]} in
                        split) words="--json --decode" ;;
                        get)
                            words="--decode"
                            ((COMP_CWORD == 3)) && words+=" $components"
                            ;;
                        set) words="--encode --append --trim --sort-query ${components// /= }=" ;;
                        query) words="--params --fragment --decode --pair --kv" ;;
                        encode) words="--slashes" ;;
                    esac
                    case ${COMP_WORDS[2]} in
                        encode | decode) words+=" -h --help" ;;
                        *) words+=" --url-file -h --help" ;;
                    esac
                fi
                ;;
        esac
    fi
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
    # A "name=" choice takes its value right after it.
    [[ ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
    return 0
}

complete -F _kt kt
