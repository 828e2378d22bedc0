# What the scripts share. Sourced, not run.
# shellcheck shell=bash

# The interpreters whose options the lister knows, besides those of any Debian: tests ask the real ones.
# shellcheck disable=SC2034
INTERPRETERS=(ksh mksh zsh ruby lua5.4 php-cli tcl gawk original-awk busybox)

# What the collection's tests need, besides a build of the program.
# shellcheck disable=SC2034
FLEET_TESTS=(ansible-core ansible-lint bubblewrap git openssh-client openssh-server python3 python3-yaml)

# The processors that there are packages for, as Debian calls them, each with a preset of that name; and what builds for them
# on this machine: its own compiler for its own processor.
# shellcheck disable=SC2034
PROCESSORS=(amd64 arm64 ppc64el s390x)
compilers_for() {
  local processor
  for processor in "$@"; do
    case $processor in
      "$(dpkg --print-architecture)") echo g++ libc6-dev ;;
      amd64) echo g++-x86-64-linux-gnu libc6-dev-amd64-cross ;;
      arm64) echo g++-aarch64-linux-gnu libc6-dev-arm64-cross ;;
      ppc64el) echo g++-powerpc64le-linux-gnu libc6-dev-ppc64el-cross ;;
      s390x) echo g++-s390x-linux-gnu libc6-dev-s390x-cross ;;
      *) printf 'no such processor: %s (there are: %s)\n' "$processor" "${PROCESSORS[*]}" >&2; return 1 ;;
    esac
  done
}

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
  # Tests that run side by side may each lack something; apt itself does not wait for another one.
  "${as_root[@]}" flock /run/cvstop-packages.lock sh -ec '
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >/dev/null
  ' sh "${missing[@]}"
}

# Builds in a folder that is configured with these options; what goes wrong is shown. One at a time: those that run side by side
# may want the same.
build_in() { # FOLDER "OPTION..." TARGET...
  mkdir -p "$1"
  # shellcheck disable=SC2086
  {
    flock 9 && cmake -S . -B "$1" $2 && cmake --build "$1" -- -k 0 "${@:3}"
  } 9>"$1/lock" >"$1/build.log" 2>&1 || {
    tail -n 60 "$1/build.log" >&2
    return 1
  }
}
