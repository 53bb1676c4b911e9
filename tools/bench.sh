# shellcheck shell=bash
# Measuring.

# Peers to be measured beside the module go into an environment of their own; where the package
# index does not answer, the measurements leave them out.
peers_python() {
  local venv=$out/peers-$tag
  if [ ! -e "$venv/ready" ]; then
    alone "$venv" fresh_venv "$venv" "$python" >&2 &&
      "$venv/bin/pip" install --quiet orjson >&2 && touch "$venv/ready" || {
      say "the package index does not answer: no peers"
      echo "$python"
      return
    }
  fi
  echo "$venv/bin/python"
}

bench() {
  local with
  build
  with=$python
  case " $* " in *" --peers "*) with=$(peers_python) ;; esac
  cd "$caller" # paths among the options are the caller's
  with_module "$with" "$root/bench/bench.py" "$@"
}
