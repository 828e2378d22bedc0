# bash completion for cvstop-watch: its own options, then the program and what may follow that.

_cvstop_watch()
{
  local current=${COMP_WORDS[COMP_CWORD]}
  local word index json=no svg=no report=yes draw=no
  COMPREPLY=()

  for ((index = 1; index < COMP_CWORD; index++)); do
    word=${COMP_WORDS[index]}
    case $word in
      --json) json=yes ;;
      --svg) svg=yes ;;
      --draw) draw=yes ;;
      --no-report) report=no; continue ;;
      --help) return ;;
      *) break ;; # the program, or --
    esac
    index=$((index + 1)) # the option's file
  done

  if [ "$index" -gt "$COMP_CWORD" ]; then
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  if [ "$index" -lt "$COMP_CWORD" ]; then
    _cvstop_watch_program "$index"
    return
  fi

  if [[ $current == -* ]]; then
    local offers=()
    [ $json$draw = nono ] && offers+=(--json)
    [ $svg = no ] && offers+=(--svg)
    [ $report$draw = yesno ] && offers+=(--no-report)
    [ $json$draw$report = nonoyes ] && offers+=(--draw)
    [ $draw = no ] && offers+=(--)
    [ "$COMP_CWORD" = 1 ] && offers+=(--help)
    mapfile -t COMPREPLY < <(compgen -W "${offers[*]}" -- "$current")
  elif [ $draw = no ]; then
    mapfile -t COMPREPLY < <(compgen -c -- "$current")
  fi
}

# The word at $1 is the program, or -- before it.
_cvstop_watch_program()
{
  local first=$1
  [ "${COMP_WORDS[first]}" = -- ] && [[ ${COMP_WORDS[first+1]} != -* ]] && [ "$((first + 1))" -lt "$COMP_CWORD" ] && first=$((first + 1))
  case ${COMP_WORDS[first]##*/} in
    -- | cvstop) ;;
    *) compopt -o default; return ;;
  esac
  # shellcheck disable=SC1091 # the program of the same package
  declare -F _cvstop >/dev/null || . /usr/share/bash-completion/completions/cvstop 2>/dev/null || return
  COMP_WORDS=(cvstop "${COMP_WORDS[@]:first+1}")
  COMP_CWORD=$((COMP_CWORD - first))
  _cvstop
}

complete -F _cvstop_watch cvstop-watch
