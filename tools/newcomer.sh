#!/usr/bin/env bash
# Runs what a newcomer runs; with a Debian tree in there, in a namespace that takes all mounts along.
set -euo pipefail
if [ $# -gt 0 ]; then
  cd "$1"
  mount --bind -o ro src src
  for each in proc sys dev; do mount --rbind "/$each" "$each"; done
  exec chroot . /usr/bin/env -i HOME=/root TERM=dumb PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    GROUNDING_FIT_BUILD=/build PYTHONDONTWRITEBYTECODE=1 /src/tools/newcomer.sh
fi
# The README's two commands come first, while everything is lacking that they are to fetch.
cd /src
./dev run
./dev test
mapfile -t headers < <(apt-cache pkgnames python3. | sed -nE 's/^(python3\.1[0-9])$/\1-dev/p')
apt-get -qq install -y --no-install-recommends clang "${headers[@]}" </dev/null
for python in /usr/bin/python3.1[0-9]; do
  PYTHON=$python ./dev test --preset quick
  PYTHON=$python ./dev build --preset clang
done
