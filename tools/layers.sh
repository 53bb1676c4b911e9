#!/usr/bin/env bash
# layers.sh SOURCES [FILE...]: what the C++ files of a folder may know of each other and of the host,
# and how long they may be. Length is asked of further files too. A function's length is for
# clang-tidy to see. Prints what is wrong, and fails if anything is.
set -euo pipefail
mapfile -t files < <(find "$1" -type f | sort)
[ ${#files[@]} -gt 0 ] || { echo "no file in $1"; exit 1; }
awk -v sources="${1%/}/" '
BEGIN {
  folders = split("text host grounding_model symbol_rendering token_fitting answer_capping binding", name)
  for (i = 1; i <= folders; i++) rank[name[i]] = i
}

function wrong(what) {
  print FILENAME ":" FNR ": " what
  found = 1
}

function end_of_file() {
  if (last > 300) { print file ": " last " lines, above 300"; found = 1 }
}

FNR == 1 {
  end_of_file()
  file = FILENAME
  depth = 0
  inside = index(FILENAME, sources) == 1
  if (inside) {
    parts = split(substr(FILENAME, length(sources) + 1), part, "/")
    folder = part[1]
    if (parts != 2 || !(folder in rank)) wrong("in none of the folders that have a place in the order")
    if (part[parts] !~ /\.[ch]pp$/) wrong("neither a .cpp nor a .hpp file")
  }
}

{ last = FNR }

# Includes run one way, and what a folder does not show by the header named after it is its own.
inside && /^[ \t]*#[ \t]*include/ {
  target = $0
  sub(/^[ \t]*#[ \t]*include[ \t]*/, "", target)
  quoted = target ~ /^"/
  target = substr(target, 2)
  sub(/[">].*/, "", target)
  steps = split(target, step, "/")
  if (quoted && (steps != 2 || !(step[1] in rank))) {
    wrong("an include is written \"folder/file.hpp\"")
  } else if (!quoted && step[1] in rank) {
    wrong("a header of our own is included in quotes")
  } else if (quoted && step[1] != folder) {
    if (rank[step[1]] > rank[folder]) wrong(folder " stands before " step[1] " and cannot include it")
    if (step[2] != step[1] ".hpp") wrong("of " step[1] " only " step[1] ".hpp is for others")
  }
}

inside && folder != "host" && folder != "binding" &&
    /(^|[^A-Za-z0-9_])(Py[A-Z_]|_Py)|Python\.h/ {
  wrong("the C API of CPython is for host and binding alone")
}

inside && FILENAME != sources "host/version.hpp" &&
    (/PY_(VERSION_HEX|(MAJOR|MINOR|MICRO)_VERSION)/ || /^[ \t]*#[ \t]*(el)?if.*P[yY]/) {
  wrong("what differs between CPythons is for host/version.hpp alone")
}

# The formatter closes a body in the column where its head begins.
{ match($0, /^ */); column = RLENGTH }

/^ *(class|struct|union)[ \t{]/ && !/;[ \t]*(\/\/.*)?$/ { head[++depth] = FNR; at[depth] = column }

/^ *}/ {
  while (depth && at[depth] > column) depth--
  if (depth && at[depth] == column) {
    if (FNR - head[depth] - 1 > 120) wrong("a body of " FNR - head[depth] - 1 " lines, above 120")
    depth--
  }
}

END {
  end_of_file()
  exit found
}' "${files[@]}" "${@:2}"
