#!/usr/bin/env bash
# Builds the service, its tools and its tests for the appliance's ARM board
# (Debian armhf) into build-armhf/, runs the test suite under qemu-arm and makes
# the armhf .deb. Meant for a Debian 12 amd64 machine, as root the first time
# (it installs what is missing). Leaves the amd64 build alone.
#
# ARMHF_SYSROOT=1 skips multiarch and unpacks the armhf libraries into
# build-armhf/sysroot instead.
set -euo pipefail
cd "$(dirname "$0")/.."
SOURCES=$PWD
BUILD=$SOURCES/build-armhf
TRIPLET=arm-linux-gnueabihf
debut=$SECONDS

# Host side: the cross compiler, the emulator, and Qt's code generators (moc,
# rcc), which are host programs.
HOTE=(cmake make file dpkg-dev g++-"$TRIPLET" qemu-user qtbase5-dev-tools qt5-qmake-bin)
# Target side: Qt's headers and CMake files, and the libraries the programs
# link with and load (the SQLite driver is a plugin, loaded at run time);
# SQLite's own headers for the bench, which replays statements on bare SQLite.
CIBLE=(qtbase5-dev:armhf libqt5sql5-sqlite:armhf libsqlite3-dev:armhf)
# Run-time libraries of the unpacked root (dependencies are added by apt).
CIBLE_RACINE=(libqt5core5a libqt5sql5 libqt5sql5-sqlite libqt5network5 libqt5test5)

etape() { printf '\n== [%s s] %s\n' "$((SECONDS - debut))" "$*"; }
echec() { printf 'armhf: %s\n' "$*" >&2; exit 1; }

cat <<EOF
armhf build of acquisitionradio: what it needs
  - the armhf architecture known to dpkg (dpkg --add-architecture armhf) and apt-get update
  - on the host: ${HOTE[*]}
  - for the target: ${CIBLE[*]}
    (multiarch; when apt cannot install them beside the amd64 ones without removing
    anything, the armhf .debs of ${CIBLE_RACINE[*]} and their
    dependencies are fetched with apt-get download and unpacked into build-armhf/sysroot)
  - qemu-arm registered with binfmt_misc, so that tests can start the daemon and the
    simulators (done here when possible; without it only the in-process tests run)
EOF

en_root() { [ "$(id -u)" -eq 0 ]; }
installe() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

mise_a_jour_faite=0
mettre_a_jour() {
    [ "$mise_a_jour_faite" -eq 1 ] && return 0
    mise_a_jour_faite=1
    # A mirror out of step for one list is not fatal: the rest is still used,
    # and whatever cannot be had is named when it is asked for.
    if ! apt-get update; then
        echo "armhf: apt-get update reported errors (above); going on with the lists it has" >&2
    fi
}

# Installs the packages missing from "$@"; names the one that cannot be had.
installer() {
    local manquants=() p
    for p in "$@"; do installe "$p" || manquants+=("$p"); done
    [ ${#manquants[@]} -eq 0 ] && return 0
    en_root || echec "run as root to install: ${manquants[*]}"
    mettre_a_jour
    echo "Installing: ${manquants[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get install -y --no-install-recommends "${manquants[@]}" && return 0
    for p in "${manquants[@]}"; do
        apt-get install -y --no-install-recommends "$p" >/dev/null 2>&1 ||
            echec "package $p cannot be installed (apt-get install $p fails)"
    done
}

etape "Architecture and host packages"
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    en_root || echec "run as root: dpkg --add-architecture armhf"
    dpkg --add-architecture armhf
    mise_a_jour_faite=0
    mettre_a_jour
fi
installer "${HOTE[@]}"

# Multiarch when apt can put the armhf Qt beside the amd64 one without
# removing anything; an unpacked root otherwise (for instance when the amd64
# libraries are at a security update the armhf lists do not have yet).
etape "armhf Qt libraries"
RACINE=/
multiarch_possible() {
    local p tous=1
    for p in "${CIBLE[@]}"; do installe "$p" || tous=0; done
    [ "$tous" -eq 1 ] && return 0
    en_root || return 1
    mettre_a_jour
    local simulation
    simulation=$(apt-get -s install --no-install-recommends "${CIBLE[@]}" 2>&1) || {
        printf '%s\n' "$simulation" | tail -n 15
        return 1
    }
    if printf '%s\n' "$simulation" | grep -q '^Remv '; then
        printf '%s\n' "$simulation" | grep '^Remv '
        return 1
    fi
    apt-get install -y --no-install-recommends "${CIBLE[@]}"
}
multiarch_en_place() {
    local p
    for p in "${CIBLE[@]}"; do installe "$p" || return 1; done
}
if [ "${ARMHF_SYSROOT:-0}" != 1 ] && multiarch_en_place; then
    echo "armhf Qt installed through multiarch"
elif [ -f "$BUILD/sysroot/.paquets" ]; then
    RACINE=$BUILD/sysroot
    echo "armhf Qt: reusing $RACINE (remove it to fetch the packages again)"
elif [ "${ARMHF_SYSROOT:-0}" != 1 ] && multiarch_possible; then
    echo "armhf Qt installed through multiarch"
else
    [ "${ARMHF_SYSROOT:-0}" = 1 ] || echo "armhf: multiarch install of ${CIBLE[*]} not possible (above); using an unpacked root"
    RACINE=$BUILD/sysroot
    DEBS=$BUILD/debs
    mkdir -p "$DEBS"
    mettre_a_jour
    # The run-time libraries and everything they depend on (armhf packages
    # only, virtual ones left out), plus qtbase5-dev, qt5-qmake and
    # libsqlite3-dev alone: headers, CMake files and mkspecs are what is used
    # of them, not their GL and X11 dependencies.
    mapfile -t paquets < <(apt-cache depends --recurse --no-recommends --no-suggests \
        --no-conflicts --no-breaks --no-replaces --no-enhances "${CIBLE_RACINE[@]/%/:armhf}" |
        grep -E '^[a-z0-9][^ ]*:armhf$' | sort -u)
    paquets+=(qtbase5-dev:armhf qt5-qmake:armhf libsqlite3-dev:armhf)
    for p in "${paquets[@]}"; do
        nom=${p%:armhf}
        if ! ls "$DEBS/${nom}"_*_armhf.deb "$DEBS/${nom}"_*_all.deb >/dev/null 2>&1; then
            (cd "$DEBS" && apt-get download "$p" >/dev/null 2>&1) ||
                echec "package $p cannot be downloaded (apt-get download $p fails)"
        fi
    done
    signature=$(ls "$DEBS" | sha1sum | cut -c1-12)
    if [ "$(cat "$RACINE/.paquets" 2>/dev/null)" != "$signature" ]; then
        rm -rf "$RACINE"
        mkdir -p "$RACINE"
        for deb in "$DEBS"/*.deb; do dpkg-deb -x "$deb" "$RACINE"; done
        # Absolute links would point into the host: keep them inside the root.
        while IFS= read -r lien; do
            ln -sfn "$RACINE$(readlink "$lien")" "$lien"
        done < <(find "$RACINE" -type l -lname '/*')
        echo "$signature" >"$RACINE/.paquets"
    fi
    echo "armhf Qt unpacked into $RACINE (${#paquets[@]} packages)"
fi

# Whole-process tests start ARM programs from an ARM test program: the kernel
# hands them to qemu-arm only when binfmt_misc knows it. F keeps the
# interpreter open, so it works whatever the child's mount view.
etape "qemu-arm for child programs (binfmt_misc)"
BINFMT=/proc/sys/fs/binfmt_misc
binfmt_arm() {
    local f
    for f in "$BINFMT"/*; do
        case $(basename "$f") in register | status) continue ;; esac
        grep -q '^magic 7f454c4601010100000000000000000002002800' "$f" 2>/dev/null &&
            grep -qx enabled "$f" && return 0
    done
    return 1
}
enregistrer_binfmt() {
    en_root || return 1
    [ -e "$BINFMT/register" ] || mount -t binfmt_misc binfmt_misc "$BINFMT" 2>/dev/null || return 1
    binfmt_arm && return 0
    printf '%s' ':qemu-arm:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00:\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff:/usr/bin/qemu-arm:F' \
        >"$BINFMT/register" 2>/dev/null || return 1
    binfmt_arm
}
ENFANTS=0
if binfmt_arm || enregistrer_binfmt; then
    # Proof: the armhf dynamic loader, run as any ARM program would be.
    if QEMU_LD_PREFIX=$RACINE "$RACINE/lib/ld-linux-armhf.so.3" --version >/dev/null 2>&1; then
        ENFANTS=1
        echo "qemu-arm is registered: the whole-process tests run too"
    fi
fi
[ "$ENFANTS" -eq 1 ] || echo "armhf: qemu-arm is NOT registered with binfmt_misc (needs root and binfmt_misc): only the in-process tests will run, not those that start the daemon or the tools"

etape "Configure and build (build-armhf)"
# A build dir configured for another root would keep that root's Qt.
if grep -q '^ARMHF_RACINE:' "$BUILD/CMakeCache.txt" 2>/dev/null &&
    ! grep -qx "ARMHF_RACINE:PATH=$RACINE" "$BUILD/CMakeCache.txt"; then
    rm -f "$BUILD/CMakeCache.txt"
fi
lanceur=()
command -v ccache >/dev/null && lanceur=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$SOURCES" -B "$BUILD" -DCMAKE_TOOLCHAIN_FILE="$SOURCES/cmake/armhf.cmake" \
    -DARMHF_RACINE:PATH="$RACINE" -DACQUISITIONRADIO_WERROR=ON "${lanceur[@]}"
cmake --build "$BUILD" -j"$(nproc)"
file "$BUILD/src/acquisitionradio"

etape "Tests under qemu-arm"
filtre=()
if [ "$ENFANTS" -eq 0 ]; then
    # The tests that start the built programs are the ones naming them.
    mapfile -t avec_enfants < <(grep -l -E 'CHEMIN_DAEMON|REPERTOIRE_OUTILS' \
        "$SOURCES"/tests/tst_*.cpp | xargs -n 1 basename | sed 's/\.cpp$//')
    filtre=(-E "^($(IFS='|'; echo "${avec_enfants[*]}"))\$")
    echo "armhf: without binfmt_misc, left out: ${avec_enfants[*]}"
fi
# In a PID namespace of its own, a stray signal from an emulated program
# (kill(-1) and the like) reaches the tests and nothing else on the machine.
isoler=()
if en_root && unshare --pid --fork --kill-child --mount-proc true 2>/dev/null; then
    isoler=(unshare --pid --fork --kill-child --mount-proc)
fi
# The supervision rows of tst_pannes_processus run the daemon's clock 200 times
# faster with libfaketime, so that minutes of radio silence pass in seconds; an
# emulated daemon, several times slower, cannot keep up with that scale (its
# supervision checks land many minutes of its time apart). Those rows take the
# tests' own "libfaketime is not installed" skip here, through a faketime that
# declines.
sans_faketime=$BUILD/sans-faketime
mkdir -p "$sans_faketime"
printf '#!/bin/sh\necho "faketime: not used under qemu-arm (scripts/armhf.sh)" >&2\nexit 1\n' \
    >"$sans_faketime/faketime"
chmod +x "$sans_faketime/faketime"
echo "armhf: libfaketime is kept from the tests under emulation (their time-accelerated rows skip)"
debut_tests=$SECONDS
PATH=$sans_faketime:$PATH "${isoler[@]}" ctest --test-dir "$BUILD" --output-on-failure "${filtre[@]}" ||
    echec "tests failed under qemu-arm (above); no package made"
duree_tests=$((SECONDS - debut_tests))

etape "armhf package"
# cmake/paquet.cmake takes the package's architecture from the target processor.
(cd "$BUILD" && cpack -G DEB)
paquet=$(ls -t "$BUILD"/*.deb | head -n 1)
architecture=$(dpkg-deb -f "$paquet" Architecture)
echo "$paquet: Architecture $architecture"
[ "$architecture" = armhf ] || echec "the package is for $architecture, not armhf"

etape "Done in $((SECONDS - debut)) s (tests $duree_tests s$([ "$ENFANTS" -eq 1 ] || echo ', in-process only'))"
