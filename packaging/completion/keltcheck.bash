# Completion of keltcheck's options for bash.
_keltcheck() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $prev in
    --source)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      return
      ;;
    --server)
      mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur")
      return
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W '--source --server --json --plain --verbose --help --version' -- "$cur")
}
complete -F _keltcheck keltcheck
