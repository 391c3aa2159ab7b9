#!/usr/bin/env bash
# Installs the Debian 12 packages slabadapt needs to build, test and run its examples,
# and generates the comma-decimal locale the tests use. Idempotent; needs root.
set -euo pipefail
packages=(
    build-essential cmake ninja-build pkg-config git
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    libsqlite3-dev sqlite3 libtomlplusplus-dev libcli11-dev
    gmsh calculix-ccx python3 python3-matplotlib python3-numpy python3-pil clang-format chromium
    clang libclang-rt-14-dev
    locales
)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
# A locale whose decimal separator is a comma, for the numeric-locale tests.
if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf8$'; then
    $SUDO sed -i 's/^# *\(de_DE.UTF-8 UTF-8\)/\1/' /etc/locale.gen
    grep -q '^de_DE.UTF-8 UTF-8' /etc/locale.gen || echo 'de_DE.UTF-8 UTF-8' | $SUDO tee -a /etc/locale.gen >/dev/null
    $SUDO locale-gen >/dev/null
fi
