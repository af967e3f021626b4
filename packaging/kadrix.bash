# Completion of kadrix for bash: its one argument.
_kadrix() {
  COMPREPLY=()
  [ "$COMP_CWORD" -ne 1 ] || mapfile -t COMPREPLY < <(compgen -W print -- "${COMP_WORDS[1]}")
}
complete -F _kadrix kadrix
