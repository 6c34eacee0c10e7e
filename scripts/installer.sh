#!/usr/bin/env bash
# Installs, from Debian's packages, whatever the build, the tests and the demo
# need and the machine lacks. Nothing is installed when everything is there.
set -euo pipefail

# lintian and systemd (systemd-analyze) check the Debian package in its test.
paquets=(cmake make g++ qtbase5-dev libqt5sql5-sqlite procps iproute2 faketime sqlite3
         libsqlite3-dev dpkg-dev file logrotate lintian systemd "$@")

manquants=()
for paquet in "${paquets[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$paquet" 2>/dev/null | grep -q 'install ok installed'; then
        manquants+=("$paquet")
    fi
done
[ ${#manquants[@]} -eq 0 ] && exit 0

echo "Installing: ${manquants[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "Run as root (or install sudo) to install: ${manquants[*]}" >&2; exit 1; }
    sudo=sudo
fi
export DEBIAN_FRONTEND=noninteractive
# A list that cannot be had (a mirror mid-sync, say) must not stop the
# install when the packages themselves are in the lists already read.
$sudo apt-get update || echo "apt-get update failed; installing from the lists at hand" >&2
$sudo apt-get install -y --no-install-recommends "${manquants[@]}"
