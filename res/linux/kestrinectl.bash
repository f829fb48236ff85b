# bash completion for kestrinectl
_kestrinectl_drives() {
    kestrinectl list -n -o ROOT 2>/dev/null
    kestrinectl list -n -o MOUNT 2>/dev/null | grep -v '^-$'
}

_kestrinectl() {
    local cur prev command i
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    command=
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            list|release|who|watch|serial|help) command=${COMP_WORDS[i]}; break ;;
        esac
    done
    case $prev in
        --machine) COMPREPLY=($(compgen -f -X '!*.json' -- "$cur")); return ;;
        -o|--output)
            local all="ROOT LABEL KIND BUS FS TOTAL USED FREE MOUNT DEVICE"
            COMPREPLY=($(compgen -W "$all" -- "${cur##*,}"))
            return ;;
    esac
    case $command in
        "") COMPREPLY=($(compgen -W "list release who watch serial help --help --version --machine" -- "$cur")) ;;
        list) COMPREPLY=($(compgen -W "--usb -o -n --json --machine --help" -- "$cur")) ;;
        release)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "--all-usb --interactive -q --json --machine --help" -- "$cur"))
            else
                local IFS=$'\n'
                COMPREPLY=($(compgen -W "$(_kestrinectl_drives)" -- "$cur"))
            fi ;;
        who|serial)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "-n --json --machine --help" -- "$cur"))
            else
                local IFS=$'\n'
                COMPREPLY=($(compgen -W "$(_kestrinectl_drives)" -- "$cur"))
            fi ;;
        watch) COMPREPLY=($(compgen -W "--json --machine --help" -- "$cur")) ;;
        help) COMPREPLY=($(compgen -W "list release who watch serial" -- "$cur")) ;;
    esac
}
complete -F _kestrinectl kestrinectl
