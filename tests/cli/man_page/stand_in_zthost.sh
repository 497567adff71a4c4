#!/usr/bin/env bash
# A stand-in for zthost that answers `help`, `serve --help` and `--version --help` as the built
# command does, with the defaults in the trees ZT_SOURCE_DIR and ZT_BINARY_DIR name, and the line
# of --web broken where ZT_WRAP says: "same" keeps ", else" on the source path's line, "next"
# puts the break between them, as a long path makes zthost's help do.
set -euo pipefail
web="(default: $ZT_SOURCE_DIR/web, else $ZT_BINARY_DIR/host/share/zthost/web)."
if [ "$ZT_WRAP" = next ]; then
  web="(default: $ZT_SOURCE_DIR/web,
                            else $ZT_BINARY_DIR/host/share/zthost/web)."
fi
case "$*" in
  help)
    printf 'Usage: zthost COMMAND\n\nCommands:\n  serve      Serves the page.\n\n' ;;
  "serve --help")
    printf 'Usage: zthost serve\n\n  --plugin <FILE>           The plug-in (default: %s).\n' \
      "$ZT_BINARY_DIR/libZtCryptographic.so.1"
    printf '  --skf <FILE>              The driver (default: %s).\n' \
      "$ZT_BINARY_DIR/softskf/libztsoftskf.so"
    printf '  --web <DIR>               The page'"'"'s folder %s\n' "$web" ;;
  "--version --help")
    printf 'Usage: zthost --version\n' ;;
  *)
    echo "stand-in zthost: unexpected arguments: $*" >&2; exit 2 ;;
esac
