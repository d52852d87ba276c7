# bash completion of mixd.
_mixd()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]] && ((COMP_CWORD > 1)); then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $previous in
    --scenario | --store | --applications | --leases)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        ;;
    --run-dir)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        ;;
    *) mapfile -t COMPREPLY < <(compgen -W '--help --version --host --scenario --run-dir --store --applications
        --no-catalogue --share-catalogue --apply --leases' -- "$current") ;;
    esac
}
complete -F _mixd mixd
