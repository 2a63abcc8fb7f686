# bash completion for brimvale                                     -*- shell-script -*-

_brimvale()
{
    local cur prev words cword
    _init_completion || return

    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--help --version" -- "$cur"))
    else
        _filedir -d
    fi
} &&
    complete -F _brimvale brimvale

# ex: filetype=sh
