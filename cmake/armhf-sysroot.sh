#!/usr/bin/env bash
# armhf-sysroot.sh DIRECTORY: lays the armhf packages that we build against into DIRECTORY, unless
# they are there. Needs no root: apt works on lists of its own, and the system's architectures and
# packages stay as they are. What is unpacked is the packages' files only; no package script runs.
set -euo pipefail
[ $# -eq 1 ] || { echo "usage: $0 DIRECTORY" >&2; exit 2; }

packages=(libnats-dev libssl-dev libspdlog-dev libmsgpack-cxx-dev cppzmq-dev
    libcli11-dev nlohmann-json3-dev libgmock-dev)
# Said to be installed, so that they are not fetched: the cross compiler has a C and a C++ library
# of its own, and the rest is needed for what we do not do with these packages.
given=(libc6 libc6-dev libgcc-s1 libstdc++6
    libboost-dev catch2 libpgm-dev libsodium-dev libnorm-dev libkrb5-dev libbsd-dev)

# The same script has made it.
made=$1/made-by
cmp -s "$0" "$made" && exit

echo "armhf-sysroot.sh: fetching ${packages[*]}"
mkdir -p "$(dirname "$1")"
work=$(mktemp -d "$1.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{state/lists/partial,cache/archives/partial,root}
chmod 755 "$work" # apt fetches as a user of its own where it runs as root
for package in "${given[@]}"; do
    printf 'Package: %s\nStatus: install ok installed\nArchitecture: armhf\n' "$package"
    printf 'Multi-Arch: same\nMaintainer: none\nDescription: none\nVersion: 99\n\n'
done >"$work/state/status"

apt=(apt-get -q -o APT::Architecture=armhf -o APT::Architectures=armhf -o Debug::NoLocking=true
    -o "Dir::State=$work/state" -o "Dir::State::status=$work/state/status"
    -o "Dir::Cache=$work/cache")
# A source without armhf, or one that cannot be reached, is an error here. Whether the packages can
# be had all the same is seen below.
"${apt[@]}" update >"$work/log" 2>&1 || true
if ! "${apt[@]}" install -y --download-only --no-install-recommends "${packages[@]}" \
    >>"$work/log" 2>&1; then
    cat "$work/log" >&2
    echo "armhf-sysroot.sh: no source in /etc/apt gave us the armhf packages;" \
        "see apt's messages above" >&2
    exit 1
fi
for archive in "$work"/cache/archives/*.deb; do
    dpkg -x "$archive" "$work/root"
done
cp "$0" "$work/root/made-by"
rm -rf "$1"
mv "$work/root" "$1"
