#!/usr/bin/env bash
# Opens the pages of the workbench in a headless Chromium, whose script checks what it has drawn.
#
#     check_browser.sh CHROMIUM PYTHON MODULE_FOLDER FOLDER_FOR_ITS_FILES
set -euo pipefail
chromium=$1 python=$2 module=$3 out=$4
root=$(cd "$(dirname "$0")/.." && pwd)
rm -rf "$out"
mkdir -p "$out"

write() {
  local file=$1
  shift
  PYTHONPATH=$module:$root:$root/workbench PYTHONDONTWRITEBYTECODE=1 \
    "$python" "$root/examples/fit_repository.py" --html "$file" "$@"
}

# opened PAGE [OPTION...]: what its own checks say, and all that its console does.
opened() {
  local page=$1
  shift
  "$chromium" --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --hide-scrollbars \
    --user-data-dir="$out/profile" --window-size=1400,3400 --virtual-time-budget=10000 \
    --enable-logging=stderr "$@" --dump-dom "file://$page" 2>"$page.log" |
    sed -n 's/.*<html[^>]* data-checks="\([^"]*\)".*/\1/p'
  grep ':CONSOLE' "$page.log" || true
}

# Two of few blocks, which fit or nearly; the usual ones; one whose facts alone pass the cap.
mkdir -p "$out/over"
"$python" -c 'print("def one(): pass\n" * 9)' >"$out/over/code.py"
"$python" -c 'print((chr(34) * 80 + "\n") * 900)' >"$out/over/README.md"
write "$out/small.html" --symbols 3 --repo "$root/examples"
write "$out/none.html" --symbols 0 --budget 0
write "$out/module.html" --budget 4000
write "$out/guide.html" --page getting-started
write "$out/over.html" --page getting-started --repo "$out/over"
for page in small none module guide over; do
  for scheme in 0 1; do # dark, light
    said=$(opened "$out/$page.html" --blink-settings=preferredColorScheme=$scheme \
      --screenshot="$out/$page-$scheme.png")
    echo "$page, scheme $scheme: $said"
    [ "$said" = ok ]
  done
done

# The checks can fail: of a wrong area, a row too few, a script that stops.
spoilt() {
  local name=$1 edit=$2 said
  sed "$edit" "$out/module.html" >"$out/$name.html"
  if cmp -s "$out/module.html" "$out/$name.html"; then return 1; fi
  said=$(opened "$out/$name.html")
  echo "$name: ${said:-nothing said}"
  [ "$said" != ok ]
}
spoilt area 's/"fills": \[\[\[/&1/'
spoilt row 's/body.append(html("tr", { class: "row" }/if (body.children.length) &/'
spoilt stopped 's/^function drawBar(bar) {/&throw new Error("stopped");/'
spoilt console 's/^addEventListener("load", report);/&console.error("noise");/'
spoilt fetched 's/<header>/<header><img src="data:image\/gif;base64,R0lGODlhAQABAAAAACw=">/'
