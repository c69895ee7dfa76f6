# Completion of keltconfig's documented options for bash.
_keltconfig() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $prev in
    -d)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      return
      ;;
    -e)
      mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur")
      return
      ;;
    -U | -P | -CustomProps[1-4]) return ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W '-m -d -z -e -U -P -nostart -u
    -CustomProps1 -CustomProps2 -CustomProps3 -CustomProps4 -h --help' -- "$cur")
}
complete -F _keltconfig keltconfig
