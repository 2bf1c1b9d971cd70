#!/usr/bin/env bash
# The Windows build's dependencies, from Debian only: the MinGW-w64 tool chain,
# zlib and Wine from the archive; OpenSSL, gSOAP's run-time and GoogleTest
# built from Debian's own source packages into build-windows/deps. Idempotent: what is
# already built is reused.
set -euo pipefail
shopt -s inherit_errexit

root=$(cd "$(dirname "$0")/.." && pwd)
deps=${LEXCTL_WINDOWS_DEPS:-$root/build-windows/deps}
src=$deps/src
prefix=$deps/prefix
host=x86_64-w64-mingw32
# The measured CI jobs share the machine's two cores.
make_jobs=2
run_nice=(nice -n 19)

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive

packages=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64 dpkg-dev perl make)
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# Source entries for the archives the machine already uses, so that
# "apt-get source" fetches from the same place.
enable_source_entries() {
  local list=/etc/apt/sources.list.d/lexctl3-deb-src.list
  local stanzas=/etc/apt/sources.list.d/lexctl3-deb-src.sources
  local tmp
  tmp=$(mktemp -d)
  python3 - "$tmp" "$list" "$stanzas" <<'EOF'
import glob, os, sys
out_dir, own_list, own_stanzas = sys.argv[1:4]
list_files = [f for f in ["/etc/apt/sources.list"] + sorted(glob.glob("/etc/apt/sources.list.d/*.list"))
              if os.path.isfile(f) and f != own_list]
stanza_files = [f for f in sorted(glob.glob("/etc/apt/sources.list.d/*.sources")) if f != own_stanzas]

binary, source = [], set()
for name in list_files:
    for line in open(name):
        words = line.split("#", 1)[0].split()
        if len(words) >= 3 and words[0] in ("deb", "deb-src"):
            (binary.append(words[1:]) if words[0] == "deb" else source.add(tuple(words[1:])))
lines = ["deb-src " + " ".join(w) for w in binary if tuple(w) not in source]

out_stanzas = []
for name in stanza_files:
    for block in open(name).read().split("\n\n"):
        fields, order = {}, []
        for line in block.splitlines():
            if line.startswith("#") or not line.strip():
                continue
            if line[0] in " \t" and order:
                fields[order[-1]] += "\n" + line
                continue
            key, _, value = line.partition(":")
            fields[key.strip()] = value.strip()
            order.append(key.strip())
        types = fields.get("Types", "").split()
        if "deb" not in types or "deb-src" in types or fields.get("Enabled", "yes") == "no":
            continue
        fields["Types"] = "deb-src"
        out_stanzas.append("\n".join(f"{k}: {fields[k]}" for k in order))

if lines:
    open(os.path.join(out_dir, "list"), "w").write("\n".join(lines) + "\n")
if out_stanzas:
    open(os.path.join(out_dir, "sources"), "w").write("\n\n".join(out_stanzas) + "\n")
EOF
  local changed=0
  local kind target
  for kind in list sources; do
    [ "$kind" = list ] && target=$list || target=$stanzas
    if [ -f "$tmp/$kind" ] && ! cmp -s "$tmp/$kind" "$target"; then
      "${sudo_cmd[@]}" install -m 644 "$tmp/$kind" "$target"
      changed=1
    fi
  done
  rm -rf "$tmp"
  if [ "$changed" -eq 1 ] || ! apt-get source --print-uris gsoap >/dev/null 2>&1; then
    "${sudo_cmd[@]}" apt-get update -qq
  fi
}

# The unpacked source folder of a Debian source package, fetched once.
source_dir() {
  local package=$1 dir
  dir=$(find "$src" -maxdepth 1 -mindepth 1 -type d -name "$package-*" 2>/dev/null | sort | tail -n 1)
  if [ -z "$dir" ]; then
    enable_source_entries >&2
    mkdir -p "$src"
    # A mirror can list a version whose files it lacks; then take the next one.
    local version
    for version in "" $(apt-cache showsrc "$package" | awk '/^Version:/ {print $2}' | sort -Vru); do
      (cd "$src" && apt-get source -qq "$package${version:+=$version}" >/dev/null 2>&1) && break
      echo "apt-get source $package${version:+=$version} failed; trying an older version" >&2
    done
    dir=$(find "$src" -maxdepth 1 -mindepth 1 -type d -name "$package-*" | sort | tail -n 1)
    [ -n "$dir" ] || { echo "No source package $package could be fetched" >&2; return 1; }
  fi
  echo "$dir"
}

# src must exist before the first look into it: find fails the script otherwise.
mkdir -p "$prefix/lib" "$prefix/include" "$src"
times=$deps/build-times.txt

# Sets package_src, build (a fresh folder) and start for one dependency.
begin_build() {
  local package=$1 title=$2
  package_src=$(source_dir "$package")
  start=$SECONDS
  echo "Building $title for $host from $(basename "$package_src")"
  build=$deps/build/$package
  rm -rf "$build"
  mkdir -p "$build"
}

if [ ! -f "$prefix/lib/libssl.a" ] || [ ! -f "$prefix/lib/libcrypto.a" ]; then
  begin_build openssl OpenSSL
  openssl_src=$package_src
  (
    cd "$build"
    # OpenSSL 3.0 has no "no-docs"; build_libs and install_dev make none anyway.
    "${run_nice[@]}" perl "$openssl_src/Configure" mingw64 no-shared no-tests \
      --cross-compile-prefix=$host- --prefix="$prefix" --libdir=lib --openssldir="$prefix/ssl" \
      >configure.log
    "${run_nice[@]}" make -j"$make_jobs" build_libs >build.log 2>&1
    "${run_nice[@]}" make install_dev >install.log 2>&1
  )
  echo "openssl $(basename "$openssl_src") $((SECONDS - start)) s" >>"$times"
fi

if [ ! -f "$prefix/lib/libgsoapssl++.a" ]; then
  begin_build gsoap "gSOAP's run-time"
  gsoap_src=$package_src
  # The flags libgsoapssl++ has on Linux: struct soap must be the same for
  # the run-time and the code soapcpp2 generates.
  flags=(-O2 -w -DWITH_IPV6 -DWITH_OPENSSL -DWITH_GZIP -DWITH_DOM -I"$gsoap_src/gsoap" -I"$prefix/include")
  "${run_nice[@]}" $host-g++-posix "${flags[@]}" -c "$gsoap_src/gsoap/stdsoap2.cpp" -o "$build/stdsoap2.o" &
  "${run_nice[@]}" $host-g++-posix "${flags[@]}" -c "$gsoap_src/gsoap/dom.cpp" -o "$build/dom.o"
  wait $!
  rm -f "$build/libgsoapssl++.a"
  $host-ar rcs "$build/libgsoapssl++.a" "$build/stdsoap2.o" "$build/dom.o"
  install -m 644 "$gsoap_src/gsoap/stdsoap2.h" "$prefix/include/stdsoap2.h"
  install -m 644 "$build/libgsoapssl++.a" "$prefix/lib/libgsoapssl++.a"
  echo "gsoap $(basename "$gsoap_src") $((SECONDS - start)) s" >>"$times"
fi

if [ ! -f "$prefix/lib/libgtest_main.a" ]; then
  begin_build googletest GoogleTest
  gtest_src=$package_src/googletest
  flags=(-O2 -w -I"$gtest_src/include" -I"$gtest_src")
  "${run_nice[@]}" $host-g++-posix "${flags[@]}" -c "$gtest_src/src/gtest-all.cc" -o "$build/gtest-all.o" &
  "${run_nice[@]}" $host-g++-posix "${flags[@]}" -c "$gtest_src/src/gtest_main.cc" -o "$build/gtest_main.o"
  wait $!
  $host-ar rcs "$build/libgtest.a" "$build/gtest-all.o"
  $host-ar rcs "$build/libgtest_main.a" "$build/gtest_main.o"
  cp -r "$gtest_src/include/gtest" "$prefix/include/"
  install -m 644 "$build/libgtest.a" "$build/libgtest_main.a" "$prefix/lib/"
  echo "googletest $(basename "$package_src") $((SECONDS - start)) s" >>"$times"
fi

# The same package name and flags as on Linux, so that service/CMakeLists.txt
# finds the run-time the same way in both builds.
pc=$prefix/lib/pkgconfig/gsoapssl++.pc
if [ ! -f "$pc" ]; then
  mkdir -p "$(dirname "$pc")"
  cat >"$pc" <<PC
prefix=$prefix
libdir=\${prefix}/lib
includedir=\${prefix}/include

Name: gsoapssl++
Description: gSOAP's C++ run-time with OpenSSL, zlib, IPv6 and DOM, for $host
Version: $(awk '/^#define GSOAP_VERSION [0-9]/ {n = $3; printf "%d.%d.%d", n / 100000, n / 1000 % 100, n % 1000}' "$prefix/include/stdsoap2.h")
Requires: libssl libcrypto
Libs: -L\${libdir} -lgsoapssl++ -lz -lws2_32
Cflags: -DWITH_IPV6 -DWITH_OPENSSL -DWITH_GZIP -DWITH_DOM -I\${includedir}
PC
fi

[ -f "$times" ] && cat "$times"
exit 0
