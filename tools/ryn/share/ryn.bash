# bash completion of the ryn tool: its commands, their options, and the family's product and card
# names (asked of ryn itself, so that they follow the installed family).

_ryn_products() {
    ryn dict products 2>/dev/null | awk '/^Drive products/ {d=1; next} /^Extension cards/ {d=0; c=1; next}
        d && $1 ~ /^[0-9]+$/ {print $2} c && $1 ~ /^0x/ {print $2}'
}

_ryn() {
    local cur prev words cword
    _init_completion || return
    local commands="translate dict sim version info send backup restore check diff watch shell web"
    local bus="--bus --help"
    local layout="--aliases --descriptions --groups --skip-defaults --vector --verbose --no-comments"
    local dict_commands="products versions types registers register commands command search"
    local config="--product --drive-version --ext --ext-version --family"
    local translate="--file --translator --flag --hex --reverse --records --json --strict --verbose
        --axis63 --axis63-version --axis63-ext --axis63-ext-version $config --help"
    local flags="use-aliases empty-is-error accept-unknown-version drive-only no-check descriptions
        tabs4 tabs8 tab full-precision"

    case "$prev" in
    -p | --product | --axis63 | -e | --ext | --axis63-ext)
        COMPREPLY=($(compgen -W "$(_ryn_products) none" -- "$cur"))
        return ;;
    -t | --translator)
        COMPREPLY=($(compgen -W "direct register" -- "$cur"))
        return ;;
    -F | --flag)
        COMPREPLY=($(compgen -W "$flags" -- "$cur"))
        return ;;
    -f | --file | --family | -o | --output)
        _filedir
        return ;;
    --bus)
        COMPREPLY=($(compgen -W "sim: tcp://127.0.0.1:7500" -- "$cur"))
        return ;;
    esac

    local command="" sub="" i
    for ((i = 1; i < cword; i++)); do
        case "${words[i]}" in
        -*) ;;
        *) if [ -z "$command" ]; then command=${words[i]}; elif [ -z "$sub" ]; then sub=${words[i]}; fi ;;
        esac
    done
    case "$command" in
    "") COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur")) ;;
    translate) COMPREPLY=($(compgen -W "$translate" -- "$cur")) ;;
    dict)
        if [ -z "$sub" ]; then
            COMPREPLY=($(compgen -W "$dict_commands --help" -- "$cur"))
        elif [ "$sub" = versions ] && [[ "$cur" != -* ]]; then
            COMPREPLY=($(compgen -W "$(_ryn_products)" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "--json --all $config --help" -- "$cur"))
        fi ;;
    version) COMPREPLY=($(compgen -W "--help" -- "$cur")) ;;
    sim) COMPREPLY=($(compgen -W "serve --listen --bus --token --max-clients --help" -- "$cur")) ;;
    info) COMPREPLY=($(compgen -W "$bus --json" -- "$cur")) ;;
    send) COMPREPLY=($(compgen -W "$bus --file --timeout --json" -- "$cur")) ;;
    backup) COMPREPLY=($(compgen -W "$bus --output --axes --types --progress $layout" -- "$cur")) ;;
    restore)
        if [[ "$cur" == -* ]]; then
            COMPREPLY=($(compgen -W "$bus --axes --types --dry-run --force --progress --json" -- "$cur"))
        else
            _filedir
        fi ;;
    check)
        if [[ "$cur" == -* ]]; then
            COMPREPLY=($(compgen -W "$config --version --bus --json --help" -- "$cur"))
        else
            _filedir
        fi ;;
    diff)
        if [[ "$cur" == -* ]]; then
            COMPREPLY=($(compgen -W "--types --json --help" -- "$cur"))
        else
            _filedir
        fi ;;
    watch) COMPREPLY=($(compgen -W "$bus --axes --interval --count --csv" -- "$cur")) ;;
    shell) COMPREPLY=($(compgen -W "$bus --timeout" -- "$cur")) ;;
    web) COMPREPLY=($(compgen -W "$bus --listen --token --open" -- "$cur")) ;;
    esac
}
complete -F _ryn ryn
