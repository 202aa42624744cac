#!/usr/bin/env bash
# Builds Lumerix.app on Linux with cmake/macos-cross.cmake and a stand-in
# now-playing adapter, then inspects it as a Mac would load it: universal
# Mach-O executables, the Info.plist keys the app relies on, and the adapter
# where the app's own lookup (run through lumerix_tests) finds it.
#
#   MACOS_SDK=DIR check-bundle.sh SOURCE_DIR WORK_DIR [LUMERIX_TESTS]
#
# Exits 77 (skipped) when MACOS_SDK names no SDK: CI has none.
set -uo pipefail

src=$(cd "${1:?usage: check-bundle.sh SOURCE_DIR WORK_DIR [LUMERIX_TESTS]}" && pwd)
work=${2:?usage: check-bundle.sh SOURCE_DIR WORK_DIR [LUMERIX_TESTS]}
tests_bin=${3:-}
if [[ -z ${MACOS_SDK:-} || ! -d ${MACOS_SDK}/Frameworks ]]; then
  echo "skipped: set MACOS_SDK to a macOS SDK directory to build and inspect Lumerix.app"
  exit 77
fi
tool() {  # tool NAME: the LLVM 19 tool, as Debian names it
  local t
  for t in "$1-19" "/usr/lib/llvm-19/bin/$1" "$1"; do command -v "$t" >/dev/null && { command -v "$t"; return; }; done
  echo "check-bundle: no $1 (apt-get install llvm-19)" >&2
  exit 1
}
lipo=$(tool llvm-lipo) objdump=$(tool llvm-objdump)

mkdir -p "$work" && work=$(cd "$work" && pwd)
# A stand-in adapter, shaped like the real checkout's build output.
adapter=$work/adapter fw=$work/adapter/build/MediaRemoteAdapter.framework
rm -rf "$adapter"
mkdir -p "$adapter/bin" "$fw/Versions/A/Resources"
printf '#!/usr/bin/perl\n# stand-in for the now-playing adapter\n' >"$adapter/bin/mediaremote-adapter.pl"
: >"$fw/Versions/A/MediaRemoteAdapter"
ln -s A "$fw/Versions/Current"
ln -s Versions/Current/MediaRemoteAdapter "$fw/MediaRemoteAdapter"
ln -s Versions/Current/Resources "$fw/Resources"

build=$work/build
echo "building Lumerix.app in $build (log: $work/build.log)"
if ! { cmake -S "$src" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$src/cmake/macos-cross.cmake" \
         -DLUMERIX_MEDIAREMOTE_ADAPTER="$adapter" && cmake --build "$build"; } >"$work/build.log" 2>&1; then
  tail -n 30 "$work/build.log"
  echo "FAIL the cross build"
  exit 1
fi

fails=0
check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then echo "ok   $what"; else echo "FAIL $what"; fails=$((fails + 1)); fi
}
contents=$build/Lumerix.app/Contents

universal() {  # universal FILE: an executable for both Macs, loading only system libraries
  local a headers
  [[ $("$lipo" -archs "$1" 2>/dev/null | tr ' ' '\n' | sort | xargs) == "arm64 x86_64" ]] || return 1
  for a in arm64 x86_64; do
    headers=$("$objdump" --macho --private-headers --arch="$a" "$1") || return 1
    grep -q 'EXECUTE' <<<"$headers" || return 1
    grep -q 'cmd LC_MAIN' <<<"$headers" || return 1
    grep -A3 'cmd LC_BUILD_VERSION' <<<"$headers" | grep -q 'platform macos' || return 1
    grep -A4 'cmd LC_BUILD_VERSION' <<<"$headers" | grep -qE 'minos 12\.0$' || return 1
    # Every library it loads is the system's (no host or build path).
    "$objdump" --macho --dylibs-used --arch="$a" "$1" | tail -n +2 | awk '{ print $1 }' |
      grep -vE '^(/System/Library/Frameworks/|/usr/lib/)' | grep -q . && return 1
    "$objdump" --macho --dylibs-used --arch="$a" "$1" | grep -q '/AppKit.framework/' || return 1
  done
}
check "Contents/MacOS/Lumerix: Mach-O executable for arm64 and x86_64, macOS 12, system libraries only" \
  universal "$contents/MacOS/Lumerix"

plist() {  # plist KEY: the value after <key>KEY</key> in Info.plist (true/false for booleans)
  awk -v key="$1" '
    found { if (match($0, /<string>[^<]*<\/string>/)) print substr($0, RSTART + 8, RLENGTH - 17)
            else if ($0 ~ /<true\/>/) print "true"; else if ($0 ~ /<false\/>/) print "false"
            exit }
    index($0, "<key>" key "</key>") { found = 1 }' "$contents/Info.plist"
}
check "Info.plist: an accessory app (LSUIElement)" test "$(plist LSUIElement)" = true
check "Info.plist: says why it automates the TV app" test -n "$(plist NSAppleEventsUsageDescription)"
check "Info.plist: bundle id app.lumerix.Lumerix" test "$(plist CFBundleIdentifier)" = app.lumerix.Lumerix
check "Info.plist: runs on macOS 12 and later" test "$(plist LSMinimumSystemVersion)" = 12.0
check "Info.plist: names the executable the bundle holds" test -f "$contents/MacOS/$(plist CFBundleExecutable)"
check "Contents/Resources/mediaremote-adapter.pl" test -f "$contents/Resources/mediaremote-adapter.pl"
check "Contents/Frameworks/MediaRemoteAdapter.framework, its version links kept" \
  test -L "$contents/Frameworks/MediaRemoteAdapter.framework/Versions/Current"
check "nothing in Contents/PrivateFrameworks" test ! -e "$contents/PrivateFrameworks"
check "lumerix-headless: Mach-O executable for arm64 and x86_64" universal "$build/lumerix-headless"
if [[ -n $tests_bin ]]; then
  lookup() {
    local out
    out=$(LUMERIX_MAC_BUNDLE_CONTENTS=$contents "$tests_bin" --gtest_filter='MacBundle.*' 2>&1)
    grep -q '\[  PASSED  \] 1 test' <<<"$out" && ! grep -q SKIPPED <<<"$out" || { echo "$out"; return 1; }
  }
  check "the app's own lookup finds the adapter in the bundle" lookup
fi

if ((fails)); then
  echo "check-bundle: $fails of the checks failed"
  exit 1
fi
echo "check-bundle: Lumerix.app passed every check ($contents)"
