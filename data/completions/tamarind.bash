# bash completion for tamarind. Installed to share/bash-completion/completions/tamarind.
# Clip ids are offered from the newest clips, collections and rules by name.

_tamarind_ids() { tamarind list --limit 30 2>/dev/null | cut -d' ' -f1; }
_tamarind_collections() { tamarind collections list 2>/dev/null | sed -E 's/^[0-9A-F]{8}  (.*)  \([0-9]+ clips?\)$/\1/'; }
_tamarind_rules() { tamarind rules list 2>/dev/null | cut -d' ' -f1; }
_tamarind_smart() { tamarind smart list 2>/dev/null | cut -d' ' -f1; }
_tamarind_settings() { tamarind settings list 2>/dev/null | cut -d' ' -f1; }
_tamarind_shortcuts() { tamarind shortcuts list 2>/dev/null | awk '/^  /{print $1}'; }

_tamarind() {
    local cur prev words cword
    _init_completion || return

    local commands="app add list search show get delete pin favorite sensitive collections stats retention
        purge-tombstones remove-orphans wipe doctor rules smart settings export import pause resume status
        collect autostart copy paste paste-slot paste-next shortcuts"
    local filters="--search --kind --app --collection --favorites --pinned --within-days"
    local kinds="text richText link image screenshot file code color multiClip"

    # The command is the first word that isn't an option.
    local command="" sub="" i
    for ((i = 1; i < cword; i++)); do
        if [[ ${words[i]} != -* ]]; then
            if [[ -z $command ]]; then command=${words[i]}; elif [[ -z $sub ]]; then sub=${words[i]}; fi
        fi
    done

    case $prev in
        --kind) COMPREPLY=($(compgen -W "$kinds" -- "$cur")); return ;;
        --sort) COMPREPLY=($(compgen -W "newest oldest most-used largest" -- "$cur")); return ;;
        --as) COMPREPLY=($(compgen -W "text html rtf image" -- "$cur")); return ;;
        --transform) COMPREPLY=($(compgen -W "plain uppercase lowercase capitalized trimmed" -- "$cur")); return ;;
        --color-format) COMPREPLY=($(compgen -W "hex rgb rgba hsl swiftUI uiColor cssVariable" -- "$cur")); return ;;
        --html | --rtf | --image | --file) _filedir; return ;;
        --collection) local IFS=$'\n'; COMPREPLY=($(compgen -W "$(_tamarind_collections)" -- "$cur")); return ;;
        --smart) COMPREPLY=($(compgen -W "$(_tamarind_smart)" -- "$cur")); return ;;
    esac

    if [[ -z $command ]]; then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi

    case $command in
        add) COMPREPLY=($(compgen -W "--text --html --rtf --image --file --type --source-app --source-name --json -" -- "$cur")) ;;
        list | search) COMPREPLY=($(compgen -W "$filters --sort --page --limit --smart --json --reveal --count" -- "$cur")) ;;
        show) [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--json --reveal" -- "$cur")) || COMPREPLY=($(compgen -W "$(_tamarind_ids)" -- "$cur")) ;;
        get) [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--as" -- "$cur")) || COMPREPLY=($(compgen -W "$(_tamarind_ids)" -- "$cur")) ;;
        paste) [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--plain" -- "$cur")) || COMPREPLY=($(compgen -W "$(_tamarind_ids)" -- "$cur")) ;;
        copy) [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--plain --transform --color-format" -- "$cur")) || COMPREPLY=($(compgen -W "$(_tamarind_ids)" -- "$cur")) ;;
        delete | pin | favorite | sensitive) [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--off" -- "$cur")) || COMPREPLY=($(compgen -W "$(_tamarind_ids)" -- "$cur")) ;;
        collections)
            if [[ -z $sub ]]; then
                COMPREPLY=($(compgen -W "list create rename delete add remove --json" -- "$cur"))
            elif [[ $sub == add || $sub == remove ]] && ((cword > 3)); then
                COMPREPLY=($(compgen -W "$(_tamarind_ids)" -- "$cur"))
            else
                local IFS=$'\n'; COMPREPLY=($(compgen -W "$(_tamarind_collections)" -- "$cur"))
            fi ;;
        rules)
            case $sub in
                "") COMPREPLY=($(compgen -W "list show add enable disable delete import export preview --json" -- "$cur")) ;;
                add | import | preview) _filedir ;;
                show | enable | disable | delete) COMPREPLY=($(compgen -W "$(_tamarind_rules)" -- "$cur")) ;;
            esac ;;
        smart)
            case $sub in
                "") COMPREPLY=($(compgen -W "list save delete --json" -- "$cur")) ;;
                save) COMPREPLY=($(compgen -W "$filters" -- "$cur")) ;;
                delete) COMPREPLY=($(compgen -W "$(_tamarind_smart)" -- "$cur")) ;;
            esac ;;
        settings)
            case $sub in
                "") COMPREPLY=($(compgen -W "list get set reset --json" -- "$cur")) ;;
                get | set | reset) ((cword == 3)) && COMPREPLY=($(compgen -W "$(_tamarind_settings)" -- "$cur")) ;;
            esac ;;
        stats) COMPREPLY=($(compgen -W "--json" -- "$cur")) ;;
        wipe) COMPREPLY=($(compgen -W "--yes" -- "$cur")) ;;
        export) COMPREPLY=($(compgen -W "$filters" -- "$cur")) ;;
        import) _filedir ;;
        status) COMPREPLY=($(compgen -W "--json" -- "$cur")) ;;
        collect) [[ -z $sub ]] && COMPREPLY=($(compgen -W "begin finish cancel toggle" -- "$cur")) ;;
        autostart) [[ -z $sub ]] && COMPREPLY=($(compgen -W "on off" -- "$cur")) ;;
        paste-slot) COMPREPLY=($(compgen -W "1 2 3 4 5 6 7 8 9 10" -- "$cur")) ;;
        shortcuts)
            case $sub in
                "") COMPREPLY=($(compgen -W "list set clear reset --json" -- "$cur")) ;;
                set | clear | reset) ((cword == 3)) && COMPREPLY=($(compgen -W "$(_tamarind_shortcuts)" -- "$cur")) ;;
            esac ;;
    esac
}
complete -F _tamarind tamarind
