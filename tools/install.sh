# shellcheck shell=bash
# Laying the module and its stub into a folder of a host.

# lay BUILD_FOLDER DIR: type checkers look beside the module for a stub of its name, but in a
# site-packages folder only for a folder of stubs.
lay() {
  local stub=stub
  case ${2%/} in */site-packages | */dist-packages) stub=stub_package ;; esac
  cmake --install "$1" --component module --strip --prefix "$2"
  cmake --install "$1" --component "$stub" --prefix "$2"
}

# Stand-ins play the host, since the host's own modules need not be within reach here.
try_import() {
  cd /
  PYTHONPATH=$root:$1 PYTHONDONTWRITEBYTECODE=1 "$python" - "$1" <<'END'
import os, sys
import grounding_fit

found = os.path.dirname(grounding_fit.__file__)
assert os.path.samefile(found, sys.argv[1]), "imported from " + found
END
}

install_into() {
  local target=$1 own
  [ -n "$target" ] || refuse "install: name the folder, one of the host's import path"
  case $target in /*) ;; *) target=$caller/$target ;; esac
  [ ! -e "$target" ] || [ -d "$target" ] || refuse "install: $target is no folder"
  pick_python
  own=$(sed -nE 's#.*/python(3\.[0-9]+)t?/(site|dist)-packages/*$#\1#p' <<<"$target")
  case $version in
    "$own".* | "${own:-$version}") ;;
    *) refuse "install: $target belongs to CPython $own, and this is $version: PYTHON=COMMAND picks another" ;;
  esac
  build
  lay "$out/$tag" "$target"
  (try_import "$target")
  say "installed for CPython $version, which imports it from $target" \
    "(another: PYTHON=\$(command -v python3) ./dev install DIR)"
}
