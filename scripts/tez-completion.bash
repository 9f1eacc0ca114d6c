# Bash completion for tez. The program is asked, so the words always match
# the installed version: sub-commands from `tez --help`, nested ones and
# options from `tez SUB... --help`, file names otherwise.
# Installed as share/bash-completion/completions/tez; or: source this file.

_tez_subcommands()
{
    # "  tez NAME ..." in the main help, "  NAME  ..." under "Subcommands:".
    if [[ $# -eq 0 ]]; then
        "$tez" --help 2>/dev/null | sed -n 's/^  tez \([a-z][a-z-]*\).*/\1/p'
    else
        "$tez" "$@" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\).*/\1/p'
    fi
}

_tez()
{
    local tez=${COMP_WORDS[0]} cur=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        COMPREPLY=($(compgen -W "$(_tez_subcommands) help --help --version" -- "$cur"))
        return
    fi
    if [[ ${COMP_WORDS[1]} == help ]]; then
        [[ $COMP_CWORD -eq 2 ]] && COMPREPLY=($(compgen -W "$(_tez_subcommands)" -- "$cur"))
        return
    fi

    # The command words typed so far: those before the first option.
    local words=() word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] && break
        words+=("$word")
    done

    if [[ $cur == -* ]]; then
        local options
        options=$("$tez" "${words[@]}" --help 2>/dev/null | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr ',' ' ')
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        return
    fi
    if [[ ${#words[@]} -eq $((COMP_CWORD - 1)) ]]; then
        local nested
        nested=$(_tez_subcommands "${words[@]}")
        if [[ -n $nested ]]; then
            COMPREPLY=($(compgen -W "$nested" -- "$cur"))
            return
        fi
    fi
    COMPREPLY=($(compgen -f -- "$cur"))
}

complete -o filenames -F _tez tez
