# Completion for the programs of KestroDB, bash: their options, as --help names them, else file names.
_kestro() {
    COMPREPLY=()
    [[ $2 == -* ]] || return 0
    mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*')" -- "$2")
}
complete -o default -F _kestro "${BASH_SOURCE[0]##*/}"
