# shellcheck shell=bash
# What CI checks, and the wheels: which steps there are, and what they lack here.

# lacks NEED: says why what needs this cannot run here. Debian's packages are tried first.
lacks() {
  case $1 in
    long) [ -z "$short" ] || echo "left out by --short" ;;
    root) [ "$(id -u)" = 0 ] || echo "no root" ;;
    index) need_venv ;; # whether it answers is seen when something is asked for
    3.*) [ -n "$(python_of "$1")" ] || echo "no CPython $1" ;;
    *) need "${1%%:*}" "${1#*:}" || echo "no ${1%%:*}" ;;
  esac
}

# Runs steps, given as lines of NAME|NEEDS|COMMAND.
run_steps() {
  local short=$1 plan="" found name needs run need lacking
  found=$(pythons)
  while IFS='|' read -r name needs run; do
    lacking=""
    for need in $needs; do lacking=${lacking:-$(lacks "$need")}; done
    plan+="$name|$lacking|$run"$'\n'
  done
  export PYTHON=$python BUILT=$out/$tag-strict CHECK=$out/check PYTHONDONTWRITEBYTECODE=1
  printf %s "$plan" | alone "$out/check" "$python" tools/run_steps.py "$command"
}

check() {
  local short="" all chosen
  if [ "${1:-}" = --short ]; then short=$1 && shift; fi
  takes 1 "$@"
  all=$(sed -E '/^(#|$)/d; :join; /\\$/ { N; s/\\\n *//; t join; }
    s/ *\| */|/; s/ *\| */|/2' tools/steps)
  chosen=$(WORD=${1:-} awk -F'|' 'ENVIRON["WORD"] == "" || index($1, ENVIRON["WORD"])' <<<"$all")
  if [ -z "$chosen" ]; then
    say "the steps are:"
    cut -d'|' -f1 <<<"$all" >&2
    refuse "check: no step's name holds '$1'"
  fi
  pick_python
  writable "$out/check"
  run_steps "$short" <<<"$chosen"
}

wheels() {
  local target=$1 version
  case $target in /*) ;; *) target=$caller/$target ;; esac
  pick_python
  writable "$target"
  need_compiler
  need_venv
  mkdir -p "$target"
  "$python" tools/wheels.py sdist "$target" >&2 || refuse "wheels: no source archive"
  for version in 3.13 3.12 3.11 3.10; do
    printf '%s|%s|%q tools/wheels.py wheel %q %q\n' "wheel for CPython $version" "$version" \
      "$python" "$target" "$(python_of "$version")"
  done | run_steps ""
  du -b "$target"/grounding_fit-*
}
