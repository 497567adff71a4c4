#!/usr/bin/env bash
# The Debian packages as a user gets them: unpacked with dpkg-deb -x into a temporary root (never
# installed: nothing on the real system is added or removed), then used from there.
#
#   installed_packages.sh CHECK PACKAGE_DIR BUILD_DIR [ARGUMENTS...]
#
# CHECK is one of:
#   build      CPACK CPACK_CONFIG: makes the packages afresh in PACKAGE_DIR
#   contents   each package holds exactly its files, with its dependencies
#   zthost     the unpacked zthost finds the plug-in, the driver and the page beside itself, never
#              in BUILD_DIR: `zthost demo`, then keygen, cert, encrypt and decrypt round trip;
#              --version names the unpacked files; the manual page and the bash completion work
#   consumer   CONSUMER_SOURCE CMAKE GENERATOR MAKE CXX: a host project configured with find_package(ZtCryptographic) against the unpacked
#              development package builds and runs
set -euo pipefail

check=$1 package_dir=$2 build_dir=$3
# The unpacked root must lie outside the build tree for "never names the build tree" to mean
# anything.
temp=${TMPDIR:-/tmp}
case "$(realpath -m "$temp")/" in "$(realpath -m "$build_dir")/"*) temp=/tmp ;; esac
work=$(mktemp -d "$temp/zt-packages-XXXXXX")
trap 'rm -rf "$work"' EXIT
root=$work/root

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

package() {
  local found=("$package_dir"/"$1"_*.deb)
  [ -f "${found[0]}" ] || fail "no package $1 in $package_dir"
  [ ${#found[@]} -eq 1 ] || fail "more than one package $1 in $package_dir: ${found[*]}"
  echo "${found[0]}"
}

unpack() {
  mkdir -p "$root"
  for name in "$@"; do
    dpkg-deb -x "$(package "$name")" "$root"
  done
}

expect_files() {
  local name=$1 expected=$2 actual
  # The exported targets' per-configuration file is named after the build type.
  actual=$(dpkg-deb -c "$(package "$name")" | awk '{print $6}' | grep -v '/$' \
    | sed -e 's|^\./||' -e 's|Targets-[a-z]*\.cmake$|Targets-CONFIG.cmake|' | sort)
  [ "$actual" = "$expected" ] || fail "$name holds:
$actual
expected:
$expected"
}

expect_depends() {
  local name=$1 wanted=$2 depends
  depends=$(dpkg-deb -f "$(package "$name")" Depends)
  case ", $depends," in
    *", $wanted"[,\ ]*) ;;
    *) fail "$name depends on \"$depends\", without $wanted" ;;
  esac
}

# Runs the unpacked zthost with a private HOME and TMPDIR; fails on a non-zero exit, on any
# output that names the build tree, or when the dynamic loader opened a file from it (the
# loader's own record of every library it loaded, LD_DEBUG=files).
zthost() {
  local out status=0 loads
  rm -rf "$work/ld" && mkdir -p "$work/ld"
  out=$(HOME=$work/home TMPDIR=$work/tmp XDG_CONFIG_HOME=$work/home/.config \
    XDG_DATA_HOME=$work/home/.local/share SOFTSKF_ROOT=$work/no-root \
    LD_DEBUG=files LD_DEBUG_OUTPUT="$work/ld/zthost" \
    "$root/usr/bin/zthost" "$@" 2>&1) || status=$?
  [ $status -eq 0 ] || fail "zthost $* exited $status:
$out"
  case "$out" in
    *"$build_dir"*) fail "zthost $* names the build tree $build_dir:
$out" ;;
  esac
  loads=$(cat "$work/ld"/zthost.*)
  if grep -F -- "$build_dir" <<<"$loads"; then
    fail "zthost $* loaded files from the build tree $build_dir"
  fi
  cat "$work/ld"/zthost.* >>"$work/loads"
  printf '%s\n' "$out"
}

expect_line() {
  local text=$1 line=$2
  grep -qxF -- "$line" <<<"$text" || fail "no line \"$line\" in:
$text"
}

case "$check" in
build)
  cpack=$4 cpack_config=$5
  rm -rf "$package_dir"
  "$cpack" --config "$cpack_config" -B "$package_dir" >"$work/cpack.log" 2>&1 \
    || { cat "$work/cpack.log" >&2; fail "cpack failed"; }
  ls "$package_dir"/*.deb
  ;;

contents)
  version=$(dpkg-deb -f "$(package libztcryptographic1)" Version)
  expect_files libztcryptographic1 "usr/lib/libZtCryptographic.so.1
usr/lib/libZtCryptographic.so.1.0.0"
  expect_files zthost "usr/bin/zthost
usr/lib/libztsoftskf.so
usr/lib/systemd/user/zthost-bridge.service
usr/share/bash-completion/completions/zthost
usr/share/man/man1/zthost.1.gz
usr/share/zthost/web/favicon.svg
usr/share/zthost/web/index.html
usr/share/zthost/web/page.js
usr/share/zthost/web/style.css
usr/share/zthost/web/zt-key.d.ts
usr/share/zthost/web/zt-key.js"
  expect_files libztcryptographic-dev "usr/include/ZtCryptographic/entry_points.h
usr/include/ZtCryptographic/zt_cryptographic.h
usr/include/ZtCryptographic/zt_envelope_data.h
usr/include/ZtCryptographic/zt_export.h
usr/lib/cmake/ZtCryptographic/ZtCryptographicConfig.cmake
usr/lib/cmake/ZtCryptographic/ZtCryptographicConfigVersion.cmake
usr/lib/cmake/ZtCryptographic/ZtCryptographicTargets-CONFIG.cmake
usr/lib/cmake/ZtCryptographic/ZtCryptographicTargets.cmake
usr/lib/libZtCryptographic.so"
  expect_depends libztcryptographic1 libqt5core5a
  expect_depends zthost "libztcryptographic1 (= $version)"
  expect_depends zthost libqt5websockets5
  expect_depends zthost libssl3
  expect_depends libztcryptographic-dev "libztcryptographic1 (= $version)"
  expect_depends libztcryptographic-dev qtbase5-dev
  for name in libztcryptographic1 zthost libztcryptographic-dev; do
    [ -n "$(dpkg-deb -f "$(package "$name")" Maintainer)" ] || fail "$name names no maintainer"
    [ -n "$(dpkg-deb -f "$(package "$name")" Description)" ] || fail "$name has no description"
  done
  # The packaged binaries are stripped of the build's debug information.
  unpack libztcryptographic1 zthost
  for binary in usr/bin/zthost usr/lib/libztsoftskf.so usr/lib/libZtCryptographic.so.1.0.0; do
    if readelf -S "$root/$binary" | grep -q '\.debug_info'; then
      fail "$binary carries debug information"
    fi
  done
  echo "three packages, each with exactly its files and dependencies"
  ;;

zthost)
  unpack libztcryptographic1 zthost
  mkdir -p "$work/home" "$work/tmp" "$work/files"
  demo=$(zthost demo)
  expect_line "$demo" "  plug-in       $root/usr/lib/libZtCryptographic.so.1"
  expect_line "$demo" "  driver        $root/usr/lib/libztsoftskf.so"
  grep -qE '^all 9 steps ok in [0-9]+\.[0-9] ms$' <<<"$demo" || fail "demo did not hold:
$demo"
  [ -z "$(ls -A "$work/tmp")" ] || fail "demo left $(ls -A "$work/tmp") in its TMPDIR"

  # The user unit runs the service through the command on systemd's search path.
  unit=$(cat "$root/usr/lib/systemd/user/zthost-bridge.service")
  expect_line "$unit" "ExecStart=zthost serve --service"
  expect_line "$unit" "WantedBy=default.target"

  help=$(zthost serve --help)
  grep -qF "The page's folder (default: $root/usr/share/zthost/web)." <<<"$(tr '\n' ' ' <<<"$help" | tr -s ' ')" \
    || fail "serve does not default to the unpacked page:
$help"

  keys=$work/keys files=$work/files
  zthost keygen --root "$keys" --name alice --pin 246810 >/dev/null
  zthost cert --root "$keys" --out "$files/alice.cert" >/dev/null
  printf 'Quarterly figures: 4.2 million\n' >"$files/report.txt"
  zthost encrypt --root "$keys" --cert "$files/alice.cert" --in "$files/report.txt" \
    --out "$files/report.env" >/dev/null
  zthost decrypt --root "$keys" --pin 246810 --in "$files/report.env" \
    --out "$files/report.out" >/dev/null
  cmp "$files/report.txt" "$files/report.out" || fail "the round trip changed the text"

  versions=$(zthost --root "$keys" --version)
  expect_line "$versions" "zthost $(dpkg-deb -f "$(package zthost)" Version)"
  expect_line "$versions" "plug-in 1.0.0 (the file name of $root/usr/lib/libZtCryptographic.so.1.0.0)"
  expect_line "$versions" "driver 1.0, firmware 1.0, manufacturer softskf (SKF_GetDevInfo of key device \"alice\" through $root/usr/lib/libztsoftskf.so)"

  # The manual page: every command zthost lists has its section, defaults as installed.
  page=$root/usr/share/man/man1/zthost.1.gz
  for command in demo keygen devices cert encrypt decrypt passwd unblock call serve config; do
    zcat "$page" | grep -qxF ".SS zthost $command" || fail "the manual page has no section for $command"
  done
  zcat "$page" | grep -qF "../lib/libZtCryptographic.so.1 from zthost's folder" \
    || fail "the manual page does not state the installed plug-in's default"
  if command -v man >/dev/null; then
    rendered=$(MANWIDTH=100 man -l "$page" 2>&1) || fail "man cannot render the page: $rendered"
    grep -qF "zthost decrypt" <<<"$rendered" || fail "the rendered page lacks zthost decrypt"
  fi

  # The completion, sourced as bash-completion does, completes from the unpacked zthost's help.
  complete_words() {
    HOME=$work/home XDG_CONFIG_HOME=$work/home/.config SOFTSKF_ROOT=$keys bash -c '
      source "$1"; shift
      COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _zthost; printf "%s\n" "${COMPREPLY[*]}"' \
      _ "$root/usr/share/bash-completion/completions/zthost" "$root/usr/bin/zthost" "$@"
  }
  [ "$(complete_words de)" = "demo devices decrypt" ] || fail "completing de gave: $(complete_words de)"
  [ "$(complete_words cert --p)" = "--plugin --pem" ] || fail "completing cert --p gave: $(complete_words cert --p)"
  [ "$(complete_words cert --device "")" = "alice" ] || fail "completing --device gave: $(complete_words cert --device "")"
  for library in usr/lib/libZtCryptographic.so.1 usr/lib/libztsoftskf.so; do
    grep -qF "file=$root/$library [0];  dynamically loaded by" "$work/loads" \
      || fail "the loader never opened $root/$library"
  done
  echo "unpacked zthost: demo, round trip and versions with the files beside it; manual page and completion"
  ;;

consumer)
  consumer_source=$4 cmake=$5 generator=$6 make_program=$7 cxx=$8
  unpack libztcryptographic1 libztcryptographic-dev
  "$cmake" -S "$consumer_source" -B "$work/consumer" -G "$generator" \
    -DCMAKE_MAKE_PROGRAM="$make_program" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON \
    >"$work/configure.log" 2>&1 || { cat "$work/configure.log" >&2; fail "the consumer does not configure"; }
  config_dir=$(sed -n 's/^ZtCryptographic_DIR:PATH=//p' "$work/consumer/CMakeCache.txt")
  [ "$config_dir" = "$root/usr/lib/cmake/ZtCryptographic" ] \
    || fail "find_package took $config_dir, not the unpacked package"
  "$cmake" --build "$work/consumer" >"$work/build.log" 2>&1 \
    || { cat "$work/build.log" >&2; fail "the consumer does not build"; }
  out=$("$work/consumer/zt_package_consumer")
  [ "$out" = "Zt_GetVersion: 0, length 11" ] || fail "the consumer answered \"$out\""
  echo "host project: find_package(ZtCryptographic), Zt::Cryptographic, built and run"
  ;;

*)
  fail "unknown check \"$check\""
  ;;
esac
