#!/usr/bin/env bash
# Installs Ledra the two ways a user gets it and checks what lands where the desktop looks:
#  1. `cmake --install` into another prefix: paths written into installed files follow it.
#  2. The Debian package of `make package`, unpacked into a scratch root (dpkg -x): the files
#     are in place and `ledra --version` runs from there. Skipped (77) when no package of
#     this version has been built.
# Usage: install-test.sh BUILD_DIR CMAKE VERSION
set -euo pipefail

build=$1
cmake=$2
version=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# Checks an installed tree whose prefix is $1, seen through the folder $2 (a DESTDIR-like
# root, or empty when the prefix is the real place).
check_tree() {
    local prefix=$1 root=$2
    local share=$root$prefix/share
    for file in "$root$prefix/bin/ledra" "$root$prefix/bin/ledra-desktop" \
        "$root$prefix/libexec/ledra-search-provider"; do
        [ -x "$file" ] || fail "$file is missing or not executable"
    done
    local desktop=$share/applications/com.varnhelm.Ledra.desktop
    [ -f "$desktop" ] || fail "no desktop entry at $desktop"
    # The menu entry starts a program of the package and shows its icon.
    local exec icon
    exec=$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$desktop" | head -n1)
    [ -x "$root$prefix/bin/$exec" ] || fail "the desktop entry runs $exec, which is not in $prefix/bin"
    icon=$(sed -n 's/^Icon=//p' "$desktop")
    [ -f "$share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "no icon $icon in the hicolor theme"
    [ -f "$share/metainfo/com.varnhelm.Ledra.metainfo.xml" ] || fail "no AppStream metadata"
    # The file types of the menu entry that are Ledra's own are described to the MIME database.
    local mime=$share/mime/packages/com.varnhelm.Ledra.xml
    [ -f "$mime" ] || fail "no MIME types at $mime"
    for type in application/x-ledradata application/x-ledraplugin; do
        grep -q "type=\"$type\"" "$mime" || fail "$type is not described in $mime"
    done
    # GNOME Shell finds the provider through its .ini, D-Bus starts it through the service file.
    local ini=$share/gnome-shell/search-providers/com.varnhelm.Ledra.search-provider.ini
    local service=$share/dbus-1/services/com.varnhelm.Ledra.SearchProvider.service
    [ -f "$ini" ] || fail "no search provider at $ini"
    [ -f "$service" ] || fail "no D-Bus service file at $service"
    grep -qx "Exec=$prefix/libexec/ledra-search-provider" "$service" ||
        fail "the D-Bus service does not start $prefix/libexec/ledra-search-provider: $(grep Exec "$service")"
    grep -qx "BusName=$(sed -n 's/^Name=//p' "$service")" "$ini" || fail "the .ini and the service name other buses"
    [ -f "$share/ledra/example-plugins/JSON Export.ledraplugin/plugin.json" ] || fail "no example plugins"
    [ -f "$share/doc/ledra/copyright" ] || fail "no copyright file"
}

# 1. Another prefix than the configured one.
"$cmake" --install "$build" --prefix "$scratch/opt/ledra" >/dev/null
check_tree "$scratch/opt/ledra" ""

# 2. The package.
deb=$(ls "$build"/ledra_"$version"_*.deb 2>/dev/null | head -n1 || true)
if [ -z "$deb" ]; then
    echo "SKIP: no ledra_${version}_*.deb in $build (build it with 'make package')"
    exit 77
fi
[ "$(dpkg-deb -f "$deb" Package)" = ledra ] || fail "the package is not called ledra"
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "package version $(dpkg-deb -f "$deb" Version), not $version"
depends=$(dpkg-deb -f "$deb" Depends)
for needed in libc6 libqt6webenginecore6 libqt6widgets6 libjavascriptcoregtk-4.1 libqpdf libzip libsqlite3 \
    libqt6webenginecore6-bin; do
    grep -q "$needed" <<<"$depends" || fail "the package does not depend on $needed: $depends"
done
dpkg -x "$deb" "$scratch/root"
check_tree /usr "$scratch/root"
if find "$scratch/root" -path '*/usr/local*' | grep -q .; then
    fail "the package installs into /usr/local"
fi
out=$("$scratch/root/usr/bin/ledra" --version)
[ "$out" = "ledra $version" ] || fail "ledra --version from the package says '$out'"
echo "OK: $deb"
