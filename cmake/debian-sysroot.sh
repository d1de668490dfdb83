#!/bin/sh
# debian-sysroot.sh ARCH DIR PACKAGE...
# Makes DIR a sysroot for the Debian architecture ARCH: the packages and what they depend on, of
# the host's release, from the suites the host's apt takes its own packages from, extracted by
# mmdebstrap without running any package's scripts and whatever versions the host has installed.
# A suite whose index for ARCH cannot be fetched is left out, with a line that says so; when
# nothing can be fetched there is no sysroot and the status is 1. DIR appears only complete.
set -eu
arch=$1
dir=$2
shift 2
packages=$(echo "$@" | tr ' ' ,)
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
sources=$dir.sources
log=$dir.log
trap 'rm -rf "$dir.new"' EXIT
apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Identifier: Packages' |
  sort -u | sed 's/^/deb /' >"$sources"

while :; do
  set --
  while read -r line; do set -- "$@" "$line"; done <"$sources"
  if [ $# -eq 0 ]; then
    echo "$arch: no suite could be fetched: no sysroot"
    exit 1
  fi
  rm -rf "$dir.new"
  if mmdebstrap --variant=extract --architectures="$arch" --include="$packages" "$release" \
    "$dir.new" "$@" >"$log" 2>&1; then
    mv "$dir.new" "$dir"
    exit 0
  fi
  # "E: Failed to fetch URI/dists/SUITE/...": leave that suite out and try again.
  sed -n 's|^E: Failed to fetch \([^ ]*/\)dists/\([^/]*\)/.*|\1 \2|p' "$log" | sort -u >"$dir.failed"
  awk 'NR == FNR { failed[$1 " " $2]; next } !(($2 " " $3) in failed)' "$dir.failed" "$sources" \
    >"$sources.left"
  if cmp -s "$sources" "$sources.left"; then
    tail -n 20 "$log"
    echo "$arch: mmdebstrap failed (above, and in $log): no sysroot"
    exit 1
  fi
  while read -r uri suite; do
    echo "$arch: the index of $suite at $uri cannot be fetched: the sysroot is made without it"
  done <"$dir.failed"
  mv "$sources.left" "$sources"
done
