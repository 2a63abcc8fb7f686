# bash completion for brimvale-cli                                 -*- shell-script -*-

_brimvale_cli_remotes()
{
    # Account names as scan and ls take them ("name:"); rclone knows the configured ones.
    command -v rclone >/dev/null 2>&1 && rclone listremotes 2>/dev/null
}

# Adds the accounts matching the current word; an account name ends in ":" and a path in the
# account may follow it, so no space is added after one.
_brimvale_cli_complete_remotes()
{
    local remote
    for remote in $(_brimvale_cli_remotes); do
        [[ $remote == "$cur"* ]] && COMPREPLY+=("$remote")
    done
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *: ]] && compopt -o nospace 2>/dev/null
    __ltrim_colon_completions "$cur"
}

_brimvale_cli()
{
    local cur prev words cword
    _init_completion -n : || return

    local commands="help size remotes ls accounts scan history changes top types find open export volumes
        cache lzfse web-config rm"
    local services="gdrive dropbox onedrive s3 r2 gcs azureblob box mega sftp ftp"

    if ((cword == 1)); then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi

    local command=${words[1]}
    local subcommand=${words[2]-}
    case $prev in
        --depth | --top | --name | --field | --field-from-env | --field-from-stdin | --since | --from | \
            -n | --count | --in)
            return
            ;;
        -o | --output)
            [[ $command == export ]] && _filedir json
            return
            ;;
    esac

    case $command in
        help)
            ((cword == 2)) && COMPREPLY=($(compgen -W "$commands" -- "$cur"))
            ;;
        remotes | volumes)
            COMPREPLY=($(compgen -W "--json --help" -- "$cur"))
            ;;
        ls)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "--json --help" -- "$cur"))
            else
                _brimvale_cli_complete_remotes
            fi
            ;;
        scan)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "--rescan --quiet --json --depth --top --help" -- "$cur"))
            else
                _filedir -d
                _brimvale_cli_complete_remotes
            fi
            ;;
        history | changes)
            if [[ $cur == -* ]]; then
                if [[ $command == history ]]; then
                    COMPREPLY=($(compgen -W "--json --help" -- "$cur"))
                else
                    COMPREPLY=($(compgen -W "--since --from --top --depth --json --help" -- "$cur"))
                fi
            else
                _filedir -d
                _brimvale_cli_complete_remotes
            fi
            ;;
        top | types | find)
            if [[ $cur == -* ]]; then
                if [[ $command == types ]]; then
                    COMPREPLY=($(compgen -W "--in --json --help" -- "$cur"))
                else
                    COMPREPLY=($(compgen -W "--in -n --count --json --help" -- "$cur"))
                fi
            elif ((cword == 2)); then
                _filedir -d
                _brimvale_cli_complete_remotes
            fi
            ;;
        accounts)
            if ((cword == 2)); then
                COMPREPLY=($(compgen -W "add reconnect remove --json --help" -- "$cur"))
                return
            fi
            case $subcommand in
                add)
                    if ((cword == 3)); then
                        COMPREPLY=($(compgen -W "$services" -- "$cur"))
                    else
                        COMPREPLY=($(compgen -W "--name --field --field-from-env
                            --field-from-stdin" -- "$cur"))
                    fi
                    ;;
                reconnect | remove)
                    if [[ $cur == -* ]]; then
                        [[ $subcommand == remove ]] && COMPREPLY=($(compgen -W "--yes" -- "$cur"))
                    elif ((cword == 3)); then
                        local remotes
                        remotes=$(_brimvale_cli_remotes)
                        COMPREPLY=($(compgen -W "${remotes//:/}" -- "$cur"))
                    fi
                    ;;
            esac
            ;;
        cache)
            if ((cword == 2)); then
                COMPREPLY=($(compgen -W "list show clear --help" -- "$cur"))
                return
            fi
            case $subcommand in
                show)
                    if [[ $cur == -* ]]; then
                        COMPREPLY=($(compgen -W "--json --depth --top" -- "$cur"))
                    else
                        _filedir '@(cache|json)'
                    fi
                    ;;
                clear)
                    if ((cword == 3)); then
                        local remotes
                        remotes=$(_brimvale_cli_remotes)
                        COMPREPLY=($(compgen -W "${remotes//:/} localdisk" -- "$cur"))
                    fi
                    ;;
            esac
            ;;
        open)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "--json --depth --top --help" -- "$cur"))
            else
                _filedir '@(json|gz)'
            fi
            ;;
        export)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "-o --output --help" -- "$cur"))
            else
                _filedir -d
                _brimvale_cli_complete_remotes
            fi
            ;;
        rm)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "--trash --permanent --yes --dry-run --help" -- "$cur"))
            elif ((cword == 2)); then
                _filedir -d
                _brimvale_cli_complete_remotes
            elif ((cword == 3)); then
                _filedir
            fi
            ;;
        lzfse)
            if ((cword == 2)); then
                COMPREPLY=($(compgen -W "compress decompress" -- "$cur"))
            elif ((cword <= 4)); then
                _filedir
            fi
            ;;
        size | web-config)
            [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--help" -- "$cur"))
            ;;
    esac
} &&
    complete -F _brimvale_cli brimvale-cli

# ex: filetype=sh
