#!/usr/bin/env bash
# Writes zthost's manual page (roff, gzipped) from the built command's own help: `zthost help`,
# then `zthost COMMAND --help` for every command it lists, so the page never lags behind them.
#
#   make_man_page.sh ZTHOST OUTPUT.gz VERSION SOURCE_DIR BINARY_DIR
#
# The help states defaults as the running zthost resolves them, which in the build tree are the
# build tree's files; the page states them as an installed zthost finds them, beside itself.
set -euo pipefail

zthost=$1 output=$2 version=$3 source_dir=$4 binary_dir=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A clean environment: no settings of whoever builds leak into the page.
run() {
  env -i PATH=/usr/bin:/bin HOME="$work" XDG_CONFIG_HOME="$work/config" \
    XDG_DATA_HOME="$work/data" TMPDIR="$work" "$zthost" "$@"
}

installed() {
  local text=$1
  text=${text//"$binary_dir/libZtCryptographic.so.1"/../lib/libZtCryptographic.so.1 from zthost\'s folder}
  text=${text//"$binary_dir/softskf/libztsoftskf.so"/../lib/libztsoftskf.so from zthost\'s folder}
  # "(default: SOURCE/web, else BINARY/...)", wrapped wherever the paths' lengths put the line
  # break: the source tree's page is the build tree's only.
  text=$(SOURCE_WEB="$source_dir/web" perl -0pe 's/\Q$ENV{SOURCE_WEB}\E,\s+else\s+//g' <<<"$text")
  text=${text//"$binary_dir/host/share/zthost/web"/../share/zthost/web from zthost\'s folder}
  printf '%s\n' "$text"
}

# roff: a backslash is \e, and a line starting with . or ' would be a request.
roff() {
  sed -e 's/\\/\\e/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"
}

summary=$(run help)
commands=$(sed -n '/^Commands:$/,/^$/{s/^  \([a-z-]*\) .*/\1/p}' <<<"$summary")

{
  printf '.TH ZTHOST 1 "" "zthost %s" "User Commands"\n' "$version"
  printf '.SH NAME\nzthost \\- the reference host of the cryptographic plug-in, on the command line\n'
  printf '.SH SYNOPSIS\n.B zthost\n[\\fIglobal options\\fR] \\fICOMMAND\\fR [\\fIoptions\\fR]\n.br\n'
  printf '.B zthost\n\\-\\-version | help [\\fICOMMAND\\fR]\n'
  printf '.SH DESCRIPTION\n.nf\n'
  installed "$summary" | roff
  printf '.fi\n.SH COMMANDS\n'
  for command in $commands; do
    [ "$command" = help ] && continue
    printf '.SS zthost %s\n.nf\n' "$command"
    installed "$(run "$command" --help)" | roff
    printf '.fi\n'
  done
  printf '.SS zthost \\-\\-version\n.nf\n'
  installed "$(run --version --help)" | roff
  printf '.fi\n'
  cat <<'ROFF'
.SH ENVIRONMENT
.TP
.B ZTHOST_PLUGIN, ZTHOST_SKF, ZTHOST_DEVICE
The plug-in, the smart-key driver and the key device, when no option names them.
.TP
.B SOFTSKF_ROOT
The software key device's root folder, when --root does not name it.
.TP
.B ZTHOST_PIN, ZTHOST_NEW_PIN, ZTHOST_ADMIN_PIN
PINs, when no option gives them; else they are asked for on the terminal.
.TP
.B XDG_CONFIG_HOME
Where the configuration file lies (default ~/.config).
.SH FILES
.TP
.I ${XDG_CONFIG_HOME:\-~/.config}/zthost/zthost.conf
The configuration file, INI: host/plugin, host/skf, host/device, host/root under [host],
bridge/port and bridge/origins under [bridge]. An option overrides the environment, which
overrides the file. \fBzthost config\fR shows every setting in effect and where it came from.
.SH EXIT STATUS
0 success, 1 an operation failed, 2 a usage error.
ROFF
} >"$work/zthost.1"

for tree in "$binary_dir" "$source_dir"; do
  if grep -qF -- "$tree" "$work/zthost.1"; then
    echo "make_man_page.sh: the page names the tree $tree:" >&2
    grep -nF -- "$tree" "$work/zthost.1" >&2
    exit 1
  fi
done
gzip -9n <"$work/zthost.1" >"$output.tmp"
mv "$output.tmp" "$output"
