# shellcheck shell=bash
# What a machine may lack: Debian's packages, a CPython with its headers, a compiler.

# Another ./dev may be installing at the same time.
apt_get() {
  local sudo=""
  if [ "$(id -u)" != 0 ]; then sudo=sudo; fi
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=600 "$@" \
    </dev/null >/dev/null
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
need() { type -P "$1" >/dev/null || packages "${@:2}"; }

need_compiler() {
  [ -n "${CXX:-}" ] || type -P g++ >/dev/null || type -P clang++ >/dev/null || packages g++
  need cmake cmake
  need ninja ninja-build
}

need_headers() {
  local header
  header=$("$python" -c 'import sysconfig; print(sysconfig.get_path("include"))')/Python.h
  [ -e "$header" ] || packages "python${version%.*}-dev"
  [ -e "$header" ] || refuse "no $header"
}

# Debian's CPython comes without what makes virtual environments.
need_venv() {
  "$python" -c 'import ensurepip' 2>/dev/null || packages "python${version%.*}-venv" || true
}

# The CPythons on this machine that run, as "3.10 /path/to/python", one a version, newest first.
pythons() {
  local candidate version
  for candidate in $(compgen -G "${PYENV_ROOT:-$HOME/.pyenv}/versions/3.*/bin/python") \
    $(for minor in {10..19}; do type -aP "python3.$minor"; done) $(type -aP python3); do
    version=$("$candidate" -c 'import sys
print(sys.implementation.name, "%d.%d" % sys.version_info[:2])' 2>/dev/null) || continue
    case $version in "cpython 3.1"[0-9]) echo "${version#* } $(readlink -f "$candidate")" ;; esac
  done | sort -r -s -u -k1,1
}

# python_of VERSION: the newest for an empty one.
python_of() {
  awk -v asked="$1" '(asked == "" || $1 == asked) && !found++ { print $2 }' <<<"${found:-$(pythons)}"
}

# Sets python to a full path, version to its version, and tag to the name of its build folder.
pick_python() {
  [ -n "${python:-}" ] && return
  local asked=${PYTHON:-} about name number
  case $asked in
    "")
      asked=$(python_of 3.10)
      asked=${asked:-$(python_of "")}
      ;;
    3.[0-9]*)
      asked=$(python_of "$asked")
      [ -n "$asked" ] || refuse "PYTHON=$PYTHON: no such CPython here"
      ;;
  esac
  if [ -z "$asked" ]; then
    packages python3 python3-dev
    asked=python3
  fi
  about=$(cd "$caller" && "$asked" -c 'import platform, sys
print(" ".join([platform.python_implementation(), "%d%02d" % sys.version_info[:2],
    platform.python_version(), "cpython-%d%d" % sys.version_info[:2] + getattr(sys, "abiflags", ""),
    sys.executable]))' 2>/dev/null) || refuse "PYTHON=$asked does not run"
  read -r name number version tag python <<<"$about"
  [ "$name" = CPython ] || refuse "PYTHON=$asked is ${name:-no Python}: a CPython is needed, 3.10 or newer"
  [ "$number" -ge 310 ] || refuse "CPython $version is too old: 3.10 or newer is needed"
  say "CPython $version at $python"
}
