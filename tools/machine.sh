# shellcheck shell=bash
# What a machine may lack: Debian's packages, a CPython with its headers, a compiler.

apt_get() {
  local sudo=""
  if [ "$(id -u)" != 0 ]; then sudo=sudo; fi
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get -qq "$@" >/dev/null
}

# packages NAME...: Debian's packages, or a word on which to install.
packages() {
  if ! type -P apt-get >/dev/null || { [ "$(id -u)" != 0 ] && ! type -P sudo >/dev/null; }; then
    say "please install: $*"
    return 1
  fi
  say "installing $*"
  apt_get install -y --no-install-recommends "$@" 2>/dev/null && return
  # The list of packages may be absent, or name versions that the mirror has no more.
  apt_get update || say "the list of packages could not be renewed"
  apt_get install -y --no-install-recommends "$@" || {
    say "could not install $*"
    return 1
  }
}

# need COMMAND PACKAGE...
need() {
  local command=$1
  shift
  type -P "$command" >/dev/null || packages "$@"
}

need_compiler() {
  [ -n "${CXX:-}" ] || type -P g++ >/dev/null || type -P clang++ >/dev/null || packages g++
  need cmake cmake
  need ninja ninja-build
}

need_headers() {
  local header minor
  header=$("$1" -c 'import sysconfig; print(sysconfig.get_path("include"))')/Python.h
  [ -e "$header" ] && return
  minor=$("$1" -c 'import sys; print("%d.%d" % sys.version_info[:2])')
  packages "python$minor-dev" && [ -e "$header" ] || {
    say "no $header"
    return 1
  }
}

# The CPythons on this machine that run, as "310 /path/to/python", one a version, newest first.
pythons() {
  local candidate version
  for candidate in $(compgen -G "${PYENV_ROOT:-$HOME/.pyenv}/versions/3.*/bin/python") \
    $(for minor in 10 11 12 13; do type -aP "python3.$minor"; done) $(type -aP python3); do
    version=$("$candidate" -c 'import sys; print("%d%d" % sys.version_info[:2] *
      (sys.implementation.name == "cpython"))' 2>/dev/null) || continue
    case $version in 31[0-9]) echo "$version $(readlink -f "$candidate")" ;; esac
  done | sort -r -s -u -k1,1
}

# Sets python to a full path, version to its version, and tag to the name of its build folder.
pick_python() {
  local asked about name number
  [ -n "${python:-}" ] && return
  asked=${PYTHON:-$(pythons | awk '{ newest = newest ? newest : $2 } $1 == 310 { found = $2 }
    END { print found ? found : newest }')}
  if [ -z "$asked" ]; then
    packages python3 python3-dev
    asked=python3
  fi
  about=$(cd "$caller" && "$asked" -c 'import platform, sys
print(" ".join([platform.python_implementation(), "%d%02d" % sys.version_info[:2],
    platform.python_version(), "cpython-%d%d" % sys.version_info[:2] + getattr(sys, "abiflags", ""),
    sys.executable]))' 2>/dev/null) || refuse "PYTHON=$asked does not run"
  read -r name number version tag python <<<"$about"
  [ "$name" = CPython ] || refuse "PYTHON=$asked is $name: a CPython is needed, 3.10 or newer"
  [ "$number" -ge 310 ] || refuse "PYTHON=$asked is CPython $version: 3.10 or newer is needed"
  say "CPython $version at $python"
}

# fresh_venv FOLDER PYTHON: a new virtual environment with pip.
fresh_venv() {
  rm -rf "$1"
  "$2" -m venv "$1" || { [ "$(readlink -f "$2")" -ef /usr/bin/python3 ] && packages python3-venv &&
    "$2" -m venv "$1"; }
}
