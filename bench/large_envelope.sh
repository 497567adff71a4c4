#!/usr/bin/env bash
# One envelope past what Qt 5 can hold, opened through `zthost decrypt` on the Qt 6 build: makes
# SIZE bytes of random content, a software key and its certificate, seals the content with
# `zthost encrypt`, opens it with `zthost decrypt`, checks the bytes, and prints the decrypt's
# wall time and peak resident memory (GNU time). Not part of `make bench` or any test: at the
# default 1.5 GiB it needs about 7 GiB of free disk in TMPDIR, some 14 GiB of memory and
# minutes.
#
#   bench/large_envelope.sh ZTHOST [SIZE_MIB]      (SIZE_MIB default 1536: 1.5 GiB)
#
# Exit codes: 0 the bytes came back, 1 any step failed, 2 usage.
set -euo pipefail

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
  echo "usage: bench/large_envelope.sh ZTHOST [SIZE_MIB]" >&2
  exit 2
fi
zthost=$1 size_mib=${2:-1536}
if ! [[ "$size_mib" =~ ^[1-9][0-9]*$ ]]; then
  echo "large_envelope: SIZE_MIB must be a positive whole number, not '$size_mib'" >&2
  exit 2
fi
if [ ! -x /usr/bin/time ]; then
  echo "large_envelope: GNU time (/usr/bin/time) is missing: apt-get install time" >&2
  exit 2
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/zt-large-envelope-XXXXXX")
trap 'rm -rf "$work"' EXIT
pin=246810

step() {
  local name=$1
  shift
  local status=0
  /usr/bin/time -f '%e %U %S %M' -o "$work/$name.time" "$@" >"$work/$name.out" 2>"$work/$name.err" || status=$?
  if [ $status -ne 0 ]; then
    echo "large_envelope: $name exited $status" >&2
    cat "$work/$name.err" >&2
    exit 1
  fi
  read -r seconds user system kib <"$work/$name.time"
  # CPU time beside the wall time: on a shared machine the two part ways.
  printf '%-8s %8.1f s wall %8.1f s CPU  peak RSS %6d MiB\n' "$name" "$seconds" \
    "$(awk "BEGIN { print $user + $system }")" $((kib / 1024))
}

head -c $((size_mib * 1024 * 1024)) /dev/urandom >"$work/content"
echo "content  $size_mib MiB of random bytes"
step keygen "$zthost" keygen --root "$work/keys" --name large --pin "$pin"
step cert "$zthost" cert --root "$work/keys" --out "$work/recipient.cert"
step encrypt "$zthost" encrypt --root "$work/keys" --cert "$work/recipient.cert" \
  --in "$work/content" --out "$work/envelope"
echo "envelope $(($(stat -c %s "$work/envelope") / 1024 / 1024)) MiB of Base64 text"
step decrypt "$zthost" decrypt --root "$work/keys" --pin "$pin" --in "$work/envelope" \
  --out "$work/opened"
if ! cmp -s "$work/content" "$work/opened"; then
  echo "large_envelope: the opened bytes differ from the content" >&2
  exit 1
fi
echo "opened   $size_mib MiB, the same bytes"
