#!/usr/bin/env bash
# Installs the Debian packages listed in debian-packages.txt that are not installed yet.
# Idempotent: when everything is present it touches nothing and needs no network.
set -euo pipefail

list="$(dirname "$0")/debian-packages.txt"
missing=()
while read -r package; do
    [[ -z "$package" || "$package" == \#* ]] && continue
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$package")
done <"$list"

if ((${#missing[@]} == 0)); then
    exit 0
fi

echo "Installing missing Debian packages: ${missing[*]}"
sudo=()
if ((EUID != 0)); then
    sudo=(sudo)
fi
"${sudo[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
