# What the scripts share. Sourced, not run.
# shellcheck shell=bash

# The interpreters whose options the lister knows, besides those of any Debian: tests ask the real ones.
# shellcheck disable=SC2034
INTERPRETERS=(ksh mksh zsh ruby lua5.4 php-cli tcl gawk original-awk busybox)

# Installs the Debian packages that are missing, as root or through sudo; otherwise names them and ends the script.
need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return
  fi
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
      printf 'These packages are missing; install them as root, then start again:\n  apt-get install %s\n' \
        "${missing[*]}" >&2
      exit 1
    fi
    as_root=(sudo)
  fi
  printf '== Installing %s\n' "${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
    >/dev/null
}
