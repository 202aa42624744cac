#!/usr/bin/env bash
# Builds the Debian package as a distribution would install it (prefix /usr)
# and checks it as one would: lintian, the desktop file, the AppStream
# metadata, and the manual pages (groff's warnings, and every option of
# --help documented). The start-at-login entry is validated by the unit tests.
#   tests/package/check-package.sh [BUILD_DIR]     (default build-package)
set -uo pipefail
cd "$(dirname "$0")/../.."
dir=${1:-build-package}
for tool in lintian desktop-file-validate appstreamcli groff; do
  command -v "$tool" >/dev/null || { echo "check-package: no $tool (bash scripts/setup --ci)" >&2; exit 1; }
done
if ! { BUILD_DIR=$dir bash scripts/build -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
         -DLUMERIX_TESTS=OFF && (cd "$dir" && cpack); } >/tmp/lumerix-package.log 2>&1; then
  tail -n 40 /tmp/lumerix-package.log
  echo "FAIL building the package"
  exit 1
fi
deb=$(ls -t "$dir"/lumerix_*.deb | head -n 1)
fails=0
check() {  # check DESCRIPTION COMMAND...: the command's output is shown when it fails
  local what=$1 out
  shift
  if out=$("$@" 2>&1); then echo "ok   $what"; else echo "$out" | sed 's/^/     /'; echo "FAIL $what"; fails=$((fails + 1)); fi
}
# Errors and warnings fail; pedantic hints and notes do not. Running as root
# (CI) makes lintian say so, which is no finding.
lintian_clean() {
  local out
  out=$(lintian --fail-on error,warning "$deb" 2>&1)
  local status=$?
  grep -v 'running with root privileges' <<<"$out"
  return $status
}
check "lintian: no errors or warnings in $(basename "$deb")" lintian_clean

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
dpkg-deb -x "$deb" "$root"
check "desktop-file-validate: the application's entry" \
  desktop-file-validate "$root/usr/share/applications/io.lumerix.Lumerix.desktop"
check "appstreamcli validate: the metainfo" \
  appstreamcli validate --no-net "$root/usr/share/metainfo/io.lumerix.Lumerix.metainfo.xml"
for page in lumerix lumerix-mpris; do
  man=$root/usr/share/man/man1/$page.1.gz
  check "man page $page(1): installed, and groff has no warning" \
    bash -c "test -f '$man' && out=\$(zcat '$man' | groff -man -ww -z 2>&1) && test -z \"\$out\" || { echo \"\$out\"; false; }"
done
documented() {  # every option --help names is in the manual page
  local opt missing=0
  for opt in $("$root/usr/bin/lumerix" --help | grep -oE -- '--[a-z-]+' | sort -u); do
    zcat "$root/usr/share/man/man1/lumerix.1.gz" | grep -qF -- "${opt//-/\\-}" || { echo "not in lumerix.1: $opt"; missing=1; }
  done
  return $missing
}
check "lumerix.1 documents every option of --help" documented

if ((fails)); then
  echo "check-package: $fails of the checks failed"
  exit 1
fi
echo "check-package: $(basename "$deb") passed every check"
