# bash completion of mixsh. The words of commands come from mixsh itself.

# Words that may follow in the command being typed: $1, perhaps in an open quote.
_mixsh_command()
{
    local typed=$1 quote= before word
    local -a found
    case $typed in
    [\'\"]*) quote=${typed:0:1} typed=${typed:1} ;;
    *) typed=${typed//\\ / } ;;
    esac
    before=${typed%"${typed##*[[:blank:]]}"}
    mapfile -t found < <("${COMP_WORDS[0]}" --complete "$typed" 2>/dev/null | cut -f1)
    for word in "${found[@]}"; do
        word=$before$word
        [[ $quote ]] || printf -v word %q "$word"
        COMPREPLY+=("$word")
    done
    compopt -o nospace 2>/dev/null
    # The quote stays open behind a finished word: of two answers bash takes what they have in common.
    if [[ $quote && ${#COMPREPLY[@]} == 1 ]]; then
        COMPREPLY=("${COMPREPLY[0]} " "${COMPREPLY[0]}  ")
    fi
}

_mixsh()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    # "--option=value" comes in three words.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]] && ((COMP_CWORD > 1)); then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $previous in
    -c | --command) _mixsh_command "$current" ;;
    --language) mapfile -t COMPREPLY < <(compgen -W 'english chinese' -- "$current") ;;
    --complete) ;;
    *) mapfile -t COMPREPLY < <(compgen -W '--help --command --json --language --keep-going --list-commands
        --complete --version' -- "$current") ;;
    esac
}
complete -F _mixsh mixsh
