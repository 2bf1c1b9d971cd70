#!/usr/bin/env bash
# Builds the Debian package from a finished build, checks it with lintian,
# unpacks it into a scratch root (the machine itself is not changed), runs
# the unpacked lexctl3 against the unpacked lexsim on loopback, and renders
# the manual pages.  Usage: scripts/package_check.sh BUILD_DIR
set -euo pipefail
build=$(cd "${1:?usage: $0 BUILD_DIR}" && pwd)
scratch=$(mktemp -d)
sim_pid=
cleanup() {
  [ -z "$sim_pid" ] || kill "$sim_pid" 2>/dev/null || true
  rm -rf "$scratch"
}
trap cleanup EXIT
fail() { echo "package: $*" >&2; exit 1; }

(cd "$build" && cpack -G DEB -B "$scratch/out") >"$scratch/cpack.log" 2>&1 \
  || fail "cpack failed: $(tail -n 20 "$scratch/cpack.log")"
deb=$(ls "$scratch"/out/lexctl3_*.deb)
echo "package: $(basename "$deb"), depends: $(dpkg-deb -f "$deb" Depends)"

lintian --fail-on error --allow-root "$deb" || fail "lintian reports errors"

root="$scratch/root"
dpkg-deb -x "$deb" "$root"
for f in usr/bin/lexctl3 usr/bin/lexsim usr/share/lexctl3/nvsoap.wsdl usr/share/lexctl3/nv.xsd \
         usr/share/man/man1/lexctl3.1.gz usr/share/man/man1/lexsim.1.gz \
         usr/share/doc/lexctl3/README.md usr/share/doc/lexctl3/copyright \
         usr/share/doc/lexctl3/examples/demo.lex; do
  [ -e "$root/$f" ] || fail "missing /$f"
done

# The unpacked programs, from a folder of their own, on a free loopback port.
cd "$scratch"
"$root/usr/bin/lexsim" --port 0 > sim.out 2>&1 &
sim_pid=$!
for _ in $(seq 100); do [ -s sim.out ] && break; sleep 0.1; done
url=$(head -n 1 sim.out)
case "$url" in http://127.0.0.1:*) ;; *) fail "lexsim did not start: $(cat sim.out)" ;; esac
server=$url
for layer in windows gsoap; do
  out=$(timeout 60 "$root/usr/bin/lexctl3" "setopt server $server" "setopt commslayer $layer" \
          versions "test -string hello" </dev/null 2>&1) || fail "lexctl3 failed on $layer: $out"
  grep -q "^Server Version: .*lexsim" <<<"$out" || fail "no server version on $layer: $out"
  ! grep -q "FAILED\|EXCEPTION" <<<"$out" || fail "a command failed on $layer: $out"
done
echo "package: unpacked lexctl3 ran versions and test against unpacked lexsim on both layers"

for page in lexctl3 lexsim; do
  warnings=$(MANWIDTH=80 man --warnings -l "$root/usr/share/man/man1/$page.1.gz" 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "man $page: $warnings"
  MANWIDTH=80 man -l "$root/usr/share/man/man1/$page.1.gz" 2>/dev/null | grep -q "^NAME" \
    || fail "man $page renders nothing"
done
echo "package: manual pages render without warnings"
