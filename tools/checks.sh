# shellcheck shell=bash
# Everything that CI checks, step by step. A new step is a function here and a line in run_checks.

check_version() {
  build_into "$out/$1" release "$2"
  test_in "$out/$1"
}

# Warnings are errors here, with both compilers.
check_compiler() {
  build_into "$out/check/$1" release "$python" -DCMAKE_CXX_COMPILER="$1" -DGROUNDING_FIT_WERROR=ON
}

check_sanitized() {
  build_sanitized
  sanitized ctest --test-dir "$out/$tag-sanitize" --output-on-failure --no-tests=error
}

check_debug() {
  build_into "$out/$tag-debug" debug "$python"
  test_in "$out/$tag-debug"
}

check_debug_malloc() {
  build
  PYTHONMALLOC=debug test_in "$out/$tag"
}

# Reference counts, on a CPython that counts them all. Debian's debug headers are links into the
# usual ones, which g++ would follow, and so miss the configuration that counts.
check_references() {
  local with
  with=$(type -P "$1")
  build_into "$out/check/counted" release "$with" -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_CXX_FLAGS=-fno-canonical-system-headers
  nm -D --undefined-only "$out"/check/counted/grounding_fit.*.so | grep _Py_RefTotal
  PYTHONPATH="$out/check/counted:tests" PYTHONDONTWRITEBYTECODE=1 \
    "$with" tests/differential.py --pages 300 --count-references
}

check_format() {
  clang-format --dry-run -Werror workers/wiki/grounding_fit/*/*.[ch]pp tests/*.cpp
  /usr/bin/black --check .
  # Code that needs an exception from the formatter or from a checker is written another way.
  if grep -rnE --include='*.py' --include='*.pyi' --exclude-dir=build --exclude-dir='.*' \
    'fmt: *(skip|off)|noqa' -- *; then return 1; fi
}

check_tidy() {
  check_compiler clang++
  printf '%s\n' workers/wiki/grounding_fit/*/*.cpp |
    xargs -P 2 -n 1 clang-tidy --quiet -p "$out/check/clang++" --warnings-as-errors='*'
}

# Nothing but the entry point is exported, nothing but libc and libm is needed.
check_symbols() {
  local module exported needed
  build
  module=$(echo "$out/$tag"/grounding_fit.*.so)
  exported=$(nm -D --defined-only "$module" | awk '{ print $3 }')
  needed=$(readelf -d "$module" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
    grep -vE '^lib[cm]\.so|^ld-linux' || true)
  echo "exported: $exported; needed beside libc: $needed"
  [ "$exported" = PyInit_grounding_fit ]
  [ -z "$needed" ]
  readelf -lW "$module" | grep GNU_RELRO
  readelf -lW "$module" | grep 'GNU_STACK.*RW '
  readelf -d "$module" | grep -E 'BIND_NOW|FLAGS.*NOW'
  nm -D --undefined-only "$module" | grep -E '__stack_chk_fail|_chk@'
}

# Installed into a host of its own, under the host's name for it, with nothing of the build.
check_install() {
  local host=$out/check/host
  rm -rf "$host"
  mkdir -p "$host/workers/wiki"
  cp workers/*.py "$host/workers"
  cp workers/wiki/*.py "$host/workers/wiki"
  install_into "$host/workers/wiki"
  [ "$(find "$host" -type f ! -name '*.py' | wc -l)" = 2 ]
  if grep -qF "$root" "$host"/workers/wiki/grounding_fit.*.so; then return 1; fi
  cd "$host"
  "$python" -c 'import pickle, workers.wiki.grounding_fit as fit
block = fit.FactBlock("text")
assert pickle.loads(pickle.dumps(block)) == block and type(block).__module__ == fit.__name__'
}

check_layers() { tools/layers.sh workers/wiki/grounding_fit tests/*.cpp; }

# The stub against the module, and the typed program where type checkers find the stub: beside the
# module, beside it under the host's name for it, and in a site-packages folder. With Debian's mypy.
check_stub() {
  local program=$root/tests/typed_use.py place=$out/check/typed
  local site folder mypy
  mypy=(/usr/bin/python3 -m mypy --strict --warn-unused-ignores)
  build_into "$out/check/stub" release /usr/bin/python3
  rm -rf "$place"
  /usr/bin/python3 -m venv --without-pip "$place/venv"
  site=$("$place/venv/bin/python" -c 'import sysconfig; print(sysconfig.get_path("platlib"))')
  for folder in "$place/beside" "$place/host/workers/wiki" "$site"; do
    lay "$out/check/stub" "$folder"
  done
  sed 's/import grounding_fit as/from workers.wiki import grounding_fit as/
    s/from grounding_fit import/from workers.wiki.grounding_fit import/' "$program" >"$place/hosted.py"
  cd "$place"
  export PYTHONDONTWRITEBYTECODE=1
  PYTHONPATH=$place/beside:$root MYPYPATH=$place/beside /usr/bin/python3 -m mypy.stubtest grounding_fit
  PYTHONPATH=$place/beside:$root /usr/bin/python3 "$program"
  MYPYPATH=$place/beside "${mypy[@]}" "$program"
  MYPYPATH=$place/host "${mypy[@]}" "$place/hosted.py"
  "${mypy[@]}" --python-executable "$place/venv/bin/python" "$program"
  # Without any of them it is not found, so the three above were.
  if "${mypy[@]}" "$program"; then return 1; fi
}

# The workbench's pages in a browser, driven by keys; pictures of them are left for the eye.
check_browser() {
  build
  with_module "$python" tests/check_browser.py "$(type -P chromium)" "$out/check/browser"
}

# The numbers and the picture of the page that the documents work through are those of the module.
check_documents() {
  build
  with_module "$python" docs/worked_page.py --check
}

# Makes an environment with a scheduler; fails where the package index does not answer.
dask_tools() {
  dask=$out/dask-$tag
  [ -e "$dask/ready" ] || alone "$dask" make_dask_tools
}

make_dask_tools() {
  fresh_venv "$dask" "$python" >&2 || return
  "$dask/bin/pip" install --quiet --retries 1 distributed >&2 || return
  touch "$dask/ready"
}

# Pages of many packages through a scheduler and two worker processes of this machine.
check_dask() {
  local at=$out/check/scheduler.json address waited=0 scheduler workers
  build
  rm -f "$at"
  "$dask/bin/dask" scheduler --host 127.0.0.1 --port 0 --no-dashboard --no-show \
    --scheduler-file "$at" &
  scheduler=$!
  with_module "$dask/bin/dask" worker --scheduler-file "$at" --nworkers 2 --nthreads 1 \
    --no-dashboard &
  workers=$!
  # shellcheck disable=SC2064 # their numbers are known now, and not when the shell ends
  trap "kill $workers; wait $workers || true; kill $scheduler; wait" EXIT
  until [ -s "$at" ]; do
    sleep 1
    waited=$((waited + 1))
    [ "$waited" -lt 60 ]
  done
  address=$("$dask/bin/python" -c 'import json, sys
from distributed import Client
address = json.load(open(sys.argv[1]))["address"]
with Client(address) as client:
    client.wait_for_workers(2, timeout=60)
print(address)' "$at")
  with_module "$dask/bin/python" examples/fit_many.py --dask "$address" | tee "$out/check/many"
  grep -q '^pages .* 0 failed$' "$out/check/many"
}

run_checks() {
  local release with
  while read -r release with; do
    step "tests on CPython 3.${release#3}" check_version "cpython-$release" "$with"
  done < <(pythons)
  for release in 310 311 312 313; do
    [ -d "$out/cpython-$release" ] || skip "tests on CPython 3.${release#3}"
  done
  step "tests with sanitizers" check_sanitized
  step "tests with every measured size checked" check_debug
  step "tests with PYTHONMALLOC=debug" check_debug_malloc
  step_if "type -P python3.11-dbg" "reference counts on a debug CPython" check_references python3.11-dbg
  step_if "type -P g++" "no warning from g++" check_compiler g++
  step_if "type -P clang++" "no warning from clang++" check_compiler clang++
  step_if "type -P clang-format" "format" check_format
  step_if "type -P clang-tidy" "clang-tidy" check_tidy
  step "exported symbols and hardening" check_symbols
  step "layers" check_layers
  step "installed into a host" check_install
  step_if "type -P stubtest" "stub and types" check_stub
  step_if packing_tools "wheel" check_wheel
  step "documents" check_documents
  step_if "type -P chromium" "browser page" check_browser
  step_if dask_tools "pages on many workers" check_dask
  # Further steps go here.
  steps_done check
}

check() {
  steps_begin "${1:-}"
  pick_python
  need_compiler
  for tool in g++:g++ clang++:clang clang-format:clang-format clang-tidy:clang-tidy \
    /usr/bin/black:black stubtest:mypy chromium:chromium python3.11-dbg:python3.11-dbg; do
    need "${tool%%:*}" "${tool#*:}" || true
  done
  alone "$out/check" run_checks
}
