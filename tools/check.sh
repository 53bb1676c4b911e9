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
  local machine target
  machine=$(uname -m)
  if [ "${1:-}" = --platform ] && [ $# -gt 1 ]; then machine=$2 && shift 2; fi
  takes 1 "$@"
  target=$(cd "$caller" && realpath -m "${1:-$out/wheels}")
  pick_python
  writable "$target"
  need_compiler
  need_venv
  "$python" tools/wheels.py sdist "$target" >&2 || refuse "wheels: no source archive"
  pythons | "$python" tools/wheels.py plan "$target" "$machine" | run_steps ""
  du -b "$target"/grounding_fit-*
}
