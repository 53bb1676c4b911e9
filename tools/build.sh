# shellcheck shell=bash
# Building, and what is done with what was built.

# Refuses a build folder that another user made, or that lies in a checkout that cannot be written.
writable() {
  local path
  mkdir -p "$(dirname "$1")" 2>/dev/null ||
    refuse "cannot make $(dirname "$1"); GROUNDING_FIT_BUILD=DIR names another build folder"
  for path in "$(dirname "$1")" "$1" "$1.log" "$1.lock"; do
    [ ! -e "$path" ] || [ -w "$path" ] || refuse "cannot write $path, which belongs to" \
      "$(stat -c %U "$path"); GROUNDING_FIT_BUILD=DIR names another build folder"
  done
}

# alone FOLDER COMMAND...: one at a time in a folder, since two builds would spoil each other.
alone() {
  local folder=$1
  shift
  writable "$folder"
  (
    flock -n 9 || {
      say "waiting for another ./dev that is at work in $folder"
      flock 9
    }
    "$@"
  ) 9>"$folder.lock"
}

compile() {
  [ -e "$built/build.ninja" ] || say "building in $built; the first time takes about half a minute"
  rm -f "$built.log" # whatever goes wrong, an older build's log is not shown
  {
    cmake --preset "$preset" -B "$built" -DPython3_EXECUTABLE="$python" && cmake --build "$built"
  } >"$built.log" 2>&1 || {
    cat "$built.log" >&2
    return 1
  }
  grep -s 'not tried yet' "$built.log" >&2 || true
}

# Sets built to the folder of this CPython and the preset, which then holds the module.
build() {
  pick_python
  built=$out/$tag
  [ "$preset" = release ] || built+=-$preset
  writable "$built"
  need_compiler
  need_headers
  alone "$built" compile
  say "the module is in $built"
}

# Paths among the options are the caller's.
run_from_caller() {
  build
  cd "$caller"
  "$built/python" "$root/$1" "${@:2}"
}

# CTest runs every test where an option is unknown or lacks its value, so it gets only known ones.
ctest_takes() {
  while [ $# -gt 0 ]; do
    case $1 in
      -R | -E | -L | -LE | -I | -j | --repeat | --timeout)
        [ $# -gt 1 ] || refuse "test: '$1' needs a value"
        shift
        ;;
      -V | -VV | -N | -Q | -j[0-9]* | --rerun-failed | --stop-on-failure | --progress) ;;
      -*) refuse "test: no option '$1' (those of CTest that pick tests or tell more, as -R NAME, -V)" ;;
      *) refuse "test: unexpected '$1' (-R $1 runs the tests so named)" ;;
    esac
    shift
  done
}

fuzz() {
  [[ $1 =~ ^[0-9]+$ ]] || refuse "fuzz: '$1' is no number of seconds"
  need g++ g++
  preset=fuzz
  build
  "$built/python" tests/fuzz.py --seconds "$1"
}

# The fuzzer comes from the package index, which does not have it for every CPython.
fuzz_guided() {
  local tools
  [[ $1 =~ ^[0-9]+$ ]] || refuse "fuzz: '$1' is no number of seconds"
  need clang++ clang
  [ -e "$(clang++ -print-resource-dir)/lib/linux/libclang_rt.asan-$(uname -m).a" ] ||
    packages libclang-rt-dev
  PYTHON=${PYTHON:-3.12} preset=guided
  build
  need_venv
  tools=$("$python" tools/toolbox.py guided atheris) || {
    say "fuzz: --guided was not run, since atheris cannot be installed for CPython $version"
    exit 77
  }
  LD_PRELOAD=$(echo "$tools"/lib/python3*/site-packages/asan_with_fuzzer.so) \
    CPYTHON=$tools/bin/python "$built/python" tests/guided.py "$out/guided" "$1"
}

# Peers to be measured beside the module come from the package index.
bench() {
  local peers
  case " $* " in
    *" --peers "*)
      pick_python
      need_venv
      peers=$("$python" tools/toolbox.py peers orjson msgspec tokenizers) || refuse "bench: no peers to measure"
      export CPYTHON=$peers/bin/python
      ;;
  esac
  run_from_caller bench/bench.py "$@"
}

# Type checkers look beside the module for a stub of its name, but in a site-packages folder only
# for a folder of stubs. Stand-ins play the host, whose own modules need not be within reach here.
install_into() {
  local target=$1 own stub=stub
  [ -n "$target" ] || refuse "install: name the folder, one of the host's import path"
  case $target in /*) ;; *) target=$caller/$target ;; esac
  [ ! -e "$target" ] || [ -d "$target" ] || refuse "install: $target is no folder"
  pick_python
  own=$(sed -nE 's#.*/python(3\.[0-9]+)t?/(site|dist)-packages/*$#\1#p' <<<"$target")
  case $version in
    "$own".* | "${own:-$version}") ;;
    *) refuse "install: $target belongs to CPython $own, and this is $version:" \
      "PYTHON=COMMAND picks another" ;;
  esac
  case ${target%/} in */site-packages | */dist-packages) stub=stub_package ;; esac
  build
  cmake --install "$built" --component module --strip --prefix "$target"
  cmake --install "$built" --component "$stub" --prefix "$target"
  cd /
  PYTHONPATH=$root:$target PYTHONDONTWRITEBYTECODE=1 "$python" -c 'import os, sys, grounding_fit
found = os.path.dirname(grounding_fit.__file__)
assert os.path.samefile(found, sys.argv[1]), "imported from " + found' "$target"
  say "installed for CPython $version, which imports it from $target" \
    "(another: PYTHON=\$(command -v python3) ./dev install DIR)"
}

format() {
  need clang-format clang-format
  need /usr/bin/black black
  clang-format -i workers/wiki/grounding_fit/*/*.[ch]pp tests/*.cpp
  /usr/bin/black --quiet .
}
