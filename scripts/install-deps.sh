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
    # e-invoice tests: schema checks of written XML
    libxml2-utils
    # e-invoice validation: the CII schema check
    libxml2-dev
    # documents: HTML layout and PDF printing, PDF reading and writing, the sRGB output intent
    qt6-webengine-dev libqpdf-dev liblcms2-dev
    # the payment QR code (GiroCode) on invoices
    libqrencode-dev
    # the desktop program: SVG icons, the X11 platform plugin, Qt's own dialog texts in German,
    # country and currency names, WebP logos
    qt6-svg-dev qt6-qpa-plugins qt6-translations-l10n iso-codes qt6-image-formats-plugins
    # plugins: scripts and their zip archives
    libjavascriptcoregtk-4.1-dev libzip-dev
    # the invoice search index (SQLite with FTS5)
    libsqlite3-dev
    # make readme-screenshots: the README's pictures as small 256-colour PNGs
    imagemagick
    # PDF checks in the tests: text, attachments and renderings (poppler), structure (qpdf)
    poppler-utils qpdf
    # reading the printed payment QR code back in the tests
    zbar-tools
    # checks of the desktop entry and the AppStream description
    desktop-file-utils appstream
    # `make package`: the Debian package's dependencies (dpkg-shlibdeps) and its check
    dpkg-dev lintian
    # `make fuzz`: the fuzz targets under libFuzzer, which comes with clang's runtime libraries
    clang libclang-rt-14-dev
    # the two-machine test: a real sync engine carrying one data folder between two homes
    syncthing
)
# Document fonts and test schemas come from the npm registry at build time. A machine that
# already has npm (for example Node from another repository, which bundles it) keeps its own.
if ! command -v npm >/dev/null 2>&1; then
    APT_PACKAGES+=(nodejs npm)
fi

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

# The document fonts come from the npm registry and are never committed. The build installs
# them into its own tree (render/CMakeLists.txt); fetching them here as well warms npm's cache
# so that a later build needs no network.
if command -v npm >/dev/null 2>&1; then
    font_cache="${XDG_CACHE_HOME:-$HOME/.cache}/ledra-fonts"
    npm install --prefix "$font_cache" --no-save --no-package-lock --no-audit --no-fund --loglevel=error \
        @fontsource/source-serif-4@5.3.1 @fontsource/ia-writer-duo@5.2.5 >/dev/null
fi

# The official e-invoice validators beside the repository (CI has them) install their own
# packages on first use; doing it here keeps that out of the test run.
validation="$(dirname "$0")/../../shared/validation"
if [ -x "$validation/setup.sh" ]; then
    "$validation/setup.sh" >/dev/null
fi
