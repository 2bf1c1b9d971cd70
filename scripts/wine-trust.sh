#!/usr/bin/env bash
# Makes a Wine prefix trust a private certificate authority, so that the
# "windows" comms layer (WinINet, which checks certificates against the
# Windows store) accepts a server certificate it signed.
#   WINEPREFIX=DIR scripts/wine-trust.sh CA.pem [CA2.pem ...]
# Each PEM certificate goes into the prefix's local-machine Root store by a
# small helper program cross-built with MinGW-w64 (Wine has no certutil).
# Exit status 0 when every certificate was added.
set -euo pipefail

[ $# -gt 0 ] || { echo "usage: WINEPREFIX=DIR $0 CA.pem..." >&2; exit 2; }
: "${WINEPREFIX:?set WINEPREFIX to the Wine prefix to change}"
export WINEPREFIX WINEDEBUG=${WINEDEBUG:--all}
wine=${LEXCTL_WINE:-/usr/lib/wine/wine64}
command -v "$wine" >/dev/null || wine=wine64

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat > "$work/add-root.c" <<'C'
#include <windows.h>
#include <wincrypt.h>
#include <stdio.h>

int main(int argc, char** argv) {
  HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, "Root");
  if (!store) {
    fprintf(stderr, "cannot open the Root store (%lu)\n", GetLastError());
    return 1;
  }
  int failed = 0;
  for (int i = 1; i < argc; ++i) {
    static char pem[1 << 16];
    static BYTE der[1 << 16];
    FILE* file = fopen(argv[i], "rb");
    size_t n = file ? fread(pem, 1, sizeof(pem) - 1, file) : 0;
    if (file) fclose(file);
    pem[n] = 0;
    DWORD size = sizeof(der);
    if (!n || !CryptStringToBinaryA(pem, 0, CRYPT_STRING_BASE64HEADER, der, &size, NULL, NULL) ||
        !CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, der, size, CERT_STORE_ADD_REPLACE_EXISTING,
                                          NULL)) {
      fprintf(stderr, "cannot add %s (%lu)\n", argv[i], GetLastError());
      failed = 1;
    }
  }
  CertCloseStore(store, 0);
  return failed;
}
C
x86_64-w64-mingw32-gcc-posix -O1 -o "$work/add-root.exe" "$work/add-root.c" -lcrypt32
args=()
for pem in "$@"; do
  cp "$pem" "$work/ca$((${#args[@]})).pem"
  args+=("Z:$work/ca$((${#args[@]})).pem")
done
"$wine" "$work/add-root.exe" "${args[@]}"
