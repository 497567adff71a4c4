#!/usr/bin/env bash
# The manual page states the defaults as an installed zthost finds them, whatever the length of
# the trees it was built in and so wherever the help happens to break its lines: the page must
# never name the source or build tree.
#
#   make_man_page_test.sh MAKE_MAN_PAGE STAND_IN_ZTHOST
set -euo pipefail
make_man_page=$1 stand_in=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failures=0
check() {
  local source_dir=$1 binary_dir=$2 wrap=$3 page
  mkdir -p "$work/bin"
  # make_man_page.sh runs the command with a clean environment, so the stand-in gets its trees
  # baked in.
  {
    printf '#!/usr/bin/env bash\nexport ZT_SOURCE_DIR=%q ZT_BINARY_DIR=%q ZT_WRAP=%q\n' \
      "$source_dir" "$binary_dir" "$wrap"
    printf 'exec %q "$@"\n' "$stand_in"
  } >"$work/bin/zthost"
  chmod +x "$work/bin/zthost"
  if ! "$make_man_page" "$work/bin/zthost" "$work/zthost.1.gz" 9.9.9 "$source_dir" "$binary_dir" \
      2>"$work/err"; then
    echo "FAIL ($wrap, $source_dir): make_man_page.sh refused:" >&2
    cat "$work/err" >&2
    failures=$((failures + 1))
    return
  fi
  page=$(gzip -dc "$work/zthost.1.gz")
  for expected in "../lib/libZtCryptographic.so.1 from zthost's folder" \
      "../lib/libztsoftskf.so from zthost's folder" \
      "(default:" "../share/zthost/web from zthost's folder)." '.TH ZTHOST 1 "" "zthost 9.9.9"'; do
    if ! grep -qF -- "$expected" <<<"$page"; then
      echo "FAIL ($wrap, $source_dir): the page lacks: $expected" >&2
      failures=$((failures + 1))
    fi
  done
  if grep -qF -- "$source_dir" <<<"$page"; then
    echo "FAIL ($wrap, $source_dir): the page names the source tree" >&2
    failures=$((failures + 1))
  fi
}

check /work/main /work/main/build same
check /check/work/main /check/work/main/build next
check "/home/a-developer/projects/with a blank/zt" "/home/a-developer/projects/with a blank/zt/build" next

if [ "$failures" -ne 0 ]; then
  echo "$failures failure(s)" >&2
  exit 1
fi
echo "the page names no tree, wherever the help breaks its lines"
