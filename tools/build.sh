# shellcheck shell=bash
# Building, and running what was built.

# Refuses a build folder that another user made, or that lies in a checkout that cannot be written.
writable() {
  local path
  mkdir -p "$out" 2>/dev/null || true
  for path in "$out" "$(dirname "$1")" "$1" "$1.log" "$1.lock"; do
    [ -e "$path" ] || continue
    [ -w "$path" ] || refuse "cannot write $path, which belongs to $(stat -c %U "$path");" \
      "GROUNDING_FIT_BUILD=DIR names another build folder"
  done
  mkdir -p "$(dirname "$1")" 2>/dev/null ||
    refuse "cannot make $(dirname "$1"); GROUNDING_FIT_BUILD=DIR names another build folder"
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
  local folder=$1 preset=$2 with=$3
  shift 3
  [ -e "$folder/build.ninja" ] || say "building in $folder; the first time takes about half a minute"
  rm -f "$folder.log" # whatever goes wrong, an older build's log is not shown
  {
    cmake --preset "$preset" -B "$folder" -DPython3_EXECUTABLE="$with" "$@" &&
      cmake --build "$folder"
  } >"$folder.log" 2>&1 || {
    cat "$folder.log" >&2
    return 1
  }
}

# build_into FOLDER PRESET PYTHON [CMAKE OPTIONS]
build_into() {
  writable "$1"
  need_compiler
  need_headers "$3"
  alone "$1" compile "$@"
}

build() {
  pick_python
  build_into "$out/$tag" release "$python"
  say "the module is in $out/$tag"
}

with_module() { PYTHONPATH="$out/$tag:$root:$root/tests:$root/workbench" PYTHONDONTWRITEBYTECODE=1 "$@"; }

# Refuses what CTest does not know: some of its versions pass over it and run every test.
ctest_takes() {
  local known argument name valued=""
  known=$(ctest --help | sed -nE 's/^  (-.*)/\1/; t cut; d; :cut; s/ +=( .*)?$//; p' |
    grep -oE -- '(^|[ ,])--?[A-Za-z][A-Za-z-]*([ =][^ ])?' | sed -E 's/^[ ,]+//; s/[ =].$/</')
  for argument; do
    name=${argument%%[=0-9]*}
    case $argument in
      -*)
        valued=""
        if grep -qxF -- "$name<" <<<"$known"; then
          valued=$argument
        elif ! grep -qxF -- "$name" <<<"$known"; then
          refuse "test: CTest has no option '$argument'"
        fi
        ;;
      *)
        [ -n "$valued" ] || refuse "test: unexpected '$argument' (-R $argument runs the tests so named)"
        valued=""
        ;;
    esac
  done
}

# test_in FOLDER [CTEST OPTIONS]
test_in() { ctest --test-dir "$1" --output-on-failure --no-tests=error -j 2 "${@:2}"; }

sanitized() {
  local asan stdcxx
  asan=$(g++ -print-file-name=libasan.so)
  stdcxx=$(g++ -print-file-name=libstdc++.so)
  env LD_PRELOAD="$asan $stdcxx" PYTHONMALLOC=malloc \
    ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1 "$@"
}

build_sanitized() { build_into "$out/$tag-sanitize" sanitize "$python" -DCMAKE_CXX_COMPILER=g++; }

fuzz() {
  local seconds=${1:-60}
  [[ $seconds =~ ^[0-9]+$ ]] || refuse "fuzz: '$seconds' is no number of seconds"
  pick_python
  need g++ g++
  build_sanitized
  PYTHONPATH="$out/$tag-sanitize:$root/tests" PYTHONDONTWRITEBYTECODE=1 \
    sanitized "$python" tests/fuzz.py --seconds "$seconds"
}

format() {
  need clang-format clang-format
  need /usr/bin/black black
  clang-format -i workers/wiki/grounding_fit/*/*.[ch]pp tests/*.cpp
  /usr/bin/black --quiet .
}
