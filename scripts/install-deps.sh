#!/usr/bin/env bash
# Puts everything Ledra needs to build, test and run on a Debian 12 machine.
# Idempotent: installs only what is missing, so it is cheap to run before every build.
# This is the only place that lists the project's dependencies.
set -euo pipefail

APT_PACKAGES=(
    # toolchain
    g++ cmake ninja-build pkg-config git clang-format
    # Qt
    qt6-base-dev
    # record files
    libsimdjson-dev
    # tests
    libgtest-dev libgmock-dev
)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

missing=()
for pkg in "${APT_PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
    fi
done

if [ ${#missing[@]} -gt 0 ]; then
    echo "install-deps: installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
