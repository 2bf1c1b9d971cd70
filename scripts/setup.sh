#!/usr/bin/env bash
# Installs the Debian packages the project needs. Idempotent and quiet when
# nothing is missing.
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  gsoap libgsoap-dev libssl-dev zlib1g-dev libboost-dev
  libcurl4-openssl-dev libreadline-dev libgtest-dev libgmock-dev
  wget openssl python3 python3-zeep wrk tinyproxy
  curl time
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
