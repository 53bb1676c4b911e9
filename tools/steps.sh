# shellcheck shell=bash
# Steps of a long command: each by name with its time, its output shown when it fails.

# steps_begin [WORD]: with a word, the steps alone whose name holds it.
steps_begin() { only=${1:-} asked=0 failed=() not_run=() began=$SECONDS; }

wanted() { [[ $1 == *"$only"* ]]; }

# step NAME COMMAND...
step() {
  local name=$1 started=$SECONDS log status
  shift
  wanted "$name" || return 0
  asked=$((asked + 1))
  mkdir -p "$out/check"
  log=$out/check/${name//[^A-Za-z0-9.+]/_}.log
  rm -f "$log"
  # Within a condition the shell would not stop at the first failure, and in the background it would
  # keep interrupts from those that test them.
  set +e
  (
    set -e
    "$@"
  ) >"$log" 2>&1 </dev/null
  status=$?
  set -e
  if [ $status = 0 ]; then
    printf '%-46s ok      %4d s\n' "$name" $((SECONDS - started))
  else
    printf '%-46s FAILED  %4d s\n' "$name" $((SECONDS - started))
    tail -n 40 "$log"
    failed+=("$name")
  fi
}

# A step that this machine cannot run.
skip() { if wanted "$1"; then not_run+=("$1"); fi; }

# step_if CONDITION NAME COMMAND...: for what needs a tool that may be absent.
step_if() {
  wanted "$2" || return 0
  if $1 >/dev/null; then step "${@:2}"; else skip "$2"; fi
}

# steps_done COMMAND: the summary; fails when a step failed, or when none was meant.
steps_done() {
  local IFS=';'
  if [ "$asked" = 0 ] && [ ${#not_run[@]} = 0 ]; then refuse "$1: no step's name holds '$only'"; fi
  printf '%s: %d of %d failed (%s), not run: %s, %d s\n' "$1" ${#failed[@]} "$asked" \
    "${failed[*]:-none}" "${not_run[*]:-none}" $((SECONDS - began))
  [ ${#failed[@]} = 0 ]
}
