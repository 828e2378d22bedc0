# shellcheck shell=sh
# What install and remove share: another system's root, and whose the files below it are.

# Empty for this system.
root=
# Who answers for another system's rpm database: its own rpm, "inside" it, or this system's, from "outside".
rpm_asked=

fail() {
  echo "cvstop: $*" >&2
  exit 1
}

set_root() { # [ROOT]
  [ $# -le 1 ] || fail "usage: ${0##*/} [ROOT]"
  [ $# -eq 1 ] || return 0
  [ -d "$1" ] || fail "there is no folder $1"
  root=$(CDPATH='' cd -- "$1" && pwd)
  root=${root%/}
  [ -z "$root" ] || find_rpm
}

# The folder of the other system's rpm database, if it has one. The last is Debian's, whose rpm has it in its user's home.
rpm_database() {
  for folder in /var/lib/rpm /usr/lib/sysimage/rpm /usr/share/rpm /root/.rpmdb; do
    for file in rpmdb.sqlite Packages.db Packages; do
      [ ! -e "$root$folder/$file" ] || { echo "$folder"; return 0; }
    done
  done
}

ask_rpm() { # OPTION...
  case $rpm_asked in
    inside) chroot "$root" rpm --dbpath "$database" "$@" 2>/dev/null ;;
    outside) rpm --root "$root" --dbpath "$database" "$@" 2>/dev/null ;;
    *) return 1 ;;
  esac
}

# The other system's programs may not run here: it may be one of another processor. And an rpm that cannot read a database takes
# it for an empty one.
find_rpm() {
  database=$(rpm_database)
  [ -n "$database" ] || return 0
  rpm_asked=inside
  ! ask_rpm -qa >/dev/null || return 0
  rpm_asked=outside
  ask_rpm -qa | grep -q . || fail "cannot tell what belongs to a package: nothing here reads the rpm database $root$database"
}

# A link in the other system, an absolute one for instance, may lead to this one's files, which are not to be changed in its place.
check_inside() { # PATH...
  [ -n "$root" ] || return 0
  top=$(readlink -f "$root")
  for path in "$@"; do
    folder=${path%/*}
    # A line of a damaged list may have no folder.
    while [ "$folder" != "${folder%/*}" ] && [ ! -e "$root$folder" ] && [ ! -L "$root$folder" ]; do
      folder=${folder%/*}
    done
    # It cannot follow a link to what is not there.
    where=$(readlink -f "$root$folder") || where=$(readlink "$root$folder")
    case $where/ in
      "${top%/}"/*) ;;
      *) fail "$root$folder leads to $where, which is no folder below $root; nothing was changed" ;;
    esac
  done
}

# Dpkg's own lists, which can be read wherever its programs run.
dpkg_has() { # PATH
  find "$root/var/lib/dpkg/info" -name '*.list' -exec grep -lxF -e "$1" {} + 2>/dev/null | grep -q .
}

is_packaged() { # PATH
  if [ -n "$root" ]; then
    dpkg_has "$1" || ask_rpm -qf "$1" >/dev/null
  else
    dpkg-query -S "$1" >/dev/null 2>&1 || rpm -qf "$1" >/dev/null 2>&1
  fi
}

# Removes the folders of a path that are of nobody else's, and empty.
prune() { # PATH
  folder=${1%/*}
  while :; do
    case $folder in
      /usr/quarn | /usr/quarn/* | /usr/share/doc/cvstop) rmdir "$root$folder" 2>/dev/null || return 0 ;;
      *) return 0 ;;
    esac
    folder=${folder%/*}
  done
}
