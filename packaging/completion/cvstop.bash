# bash completion for cvstop: what can still be said after what stands there already.

_cvstop()
{
  local word kill=no list=no third=no quiet=no exclude=no file=no
  local current=${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=()

  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [ $file = yes ]; then
      file=no
      continue
    fi
    case ${word,,} in
      -k | -kill) kill=yes ;;
      -l | -list) list=yes ;;
      -3 | -third_party) third=yes ;;
      -q | -quiet) quiet=yes ;;
      -b | -blacklist | -e | -excludelist) exclude=yes file=yes ;;
      -h | -help) return ;; # nothing behind it is looked at
    esac
  done

  if [ $file = yes ]; then
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi

  local offers=()
  [ $kill$list = nono ] && offers+=(-k -kill)
  [ $kill$list$quiet = nonono ] && offers+=(-l -list)
  [ $third = no ] && offers+=(-3 -third_party)
  [ $quiet$list = nono ] && offers+=(-q -quiet)
  [ $exclude = no ] && offers+=(-b -blacklist -e -excludelist)
  [ "$COMP_CWORD" = 1 ] && offers+=(-h -help)
  mapfile -t COMPREPLY < <(compgen -W "${offers[*]}" -- "$current")
}

complete -F _cvstop cvstop
