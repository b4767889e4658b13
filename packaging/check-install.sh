#!/usr/bin/env bash
# Installs a build tree into a staging folder twice (--prefix /usr, as a distribution package
# would, and --prefix /opt/corvane) and checks what lands where, that the paths inside the files
# follow the prefix, and that the installed binary starts with only the installed libraries.
# usage: check-install.sh BUILD_DIR BINDIR DATADIR LIBDIR UNITDIR AUTOSTART(0|1) [DESKTOP_DIR]
set -euo pipefail
build="$1" bindir="$2" datadir="$3" libdir="$4" unitdir="$5" autostart="$6" desktopdir="${7:-}"

stage="$(mktemp -d)"
trap 'rm -rf "$stage"' EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
expect_file() { [ -f "$1" ] || fail "missing $1"; }
expect_line() {  # FILE LINE
  grep -qxF -- "$2" "$1" 2>/dev/null || fail "$1 lacks the line: $2"
}

check_prefix() {  # PREFIX CONFIG_DIR
  local prefix="$1" etc="$2" root="$stage/$(basename "$1")"
  if ! DESTDIR="$root" cmake --install "$build" --prefix "$prefix" >"$stage/install.log" 2>&1; then
    cat "$stage/install.log" >&2
    fail "cmake --install --prefix $prefix failed"
    return
  fi
  local top="$root$prefix"
  expect_file "$top/$bindir/corvane"
  [ -x "$top/$bindir/corvane" ] || fail "$top/$bindir/corvane is not executable"
  expect_file "$top/$datadir/applications/corvane.desktop"
  expect_file "$top/$datadir/icons/hicolor/scalable/apps/corvane.svg"
  local unit="$top/$unitdir/corvane.service"
  expect_file "$unit"
  expect_line "$unit" "ExecStart=$prefix/$bindir/corvane --headless"
  expect_line "$unit" "Restart=on-failure"
  expect_line "$unit" "RestartPreventExitStatus=2"
  expect_line "$unit" "KillSignal=SIGTERM"
  expect_line "$unit" "TimeoutStopSec=10"
  if [ "$autostart" = 1 ]; then
    expect_file "$root$etc/xdg/autostart/corvane.desktop"
  fi
  # Every installed file is under the staging root: no rule ignores DESTDIR.
  local installed
  while IFS= read -r installed; do
    [ -e "$root$installed" ] || [ -L "$root$installed" ] || fail "$installed was not installed under DESTDIR"
  done <"$build/install_manifest.txt"

  # The installed binaries find every library they need: the loader fails before main otherwise.
  if [ -x "$top/$bindir/corvane" ]; then
    local out
    if ! out="$(env -u LD_LIBRARY_PATH "$top/$bindir/corvane" --help 2>&1)"; then
      fail "installed corvane --help failed: $out"
    fi
  fi
  local binary
  for binary in "$top/$bindir/corvane" ${desktopdir:+"$top/$desktopdir/corvane-desktop"}; do
    [ -x "$binary" ] || { fail "$binary is missing or not executable"; continue; }
    if env -u LD_LIBRARY_PATH ldd "$binary" | grep -q "not found"; then
      fail "unresolved libraries of $binary: $(ldd "$binary" | grep "not found")"
    fi
  done
  # The private whisper.cpp: ggml's CPU back-ends sit beside it, the plain x86-64 one among them,
  # and nothing else there assumes a vector extension, so the program runs on any x86-64 (the
  # back-end chosen at start uses what the processor has).
  local private="$top/$libdir/corvane"
  if [ -d "$private" ] && [ "$(uname -m)" = x86_64 ]; then
    expect_file "$private/libggml-cpu-x64.so"
    expect_file "$private/libggml-cpu-haswell.so"
    local lib
    for lib in "$private"/libwhisper.so.* "$private"/libggml.so.* "$private"/libggml-base.so.*; do
      [ -L "$lib" ] && continue
      if objdump -d --no-show-raw-insn "$lib" | grep -qE '%[yz]mm[0-9]'; then
        fail "$lib uses AVX registers: it would not run on a processor without them"
      fi
    done
  fi
  # The headless worker must not carry the desktop's libraries.
  if env -u LD_LIBRARY_PATH ldd "$top/$bindir/corvane" 2>/dev/null | grep -q "libQt6"; then
    fail "$top/$bindir/corvane links Qt"
  fi
}

desktop="$(dirname "${BASH_SOURCE[0]}")/corvane.desktop"
for line in "[Desktop Entry]" "Type=Application" "Name=Corvane" "Exec=corvane" "Icon=corvane" \
            "Categories=Utility;" "NoDisplay=false" "Terminal=false"; do
  expect_line "$desktop" "$line"
done
if command -v desktop-file-validate >/dev/null; then
  desktop-file-validate "$desktop" || fail "desktop-file-validate rejects corvane.desktop"
fi
if command -v python3 >/dev/null; then
  python3 -c 'import sys, xml.dom.minidom; xml.dom.minidom.parse(sys.argv[1])' \
    "$(dirname "${BASH_SOURCE[0]}")/corvane.svg" || fail "corvane.svg is not well-formed XML"
fi

check_prefix /usr /etc
check_prefix /opt/corvane /opt/corvane/etc

if [ "$failures" -gt 0 ]; then
  echo "$failures packaging check(s) failed" >&2
  exit 1
fi
echo "packaging: install tree complete"
