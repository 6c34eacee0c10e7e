#!/usr/bin/env bash
# The Debian package of the daemon, as the appliance gets it: built by CPack
# from this build tree, checked by lintian, inspected, installed with dpkg into
# a scratch root, its systemd unit verified, driven through its init script and
# watcher, its logs rotated, then removed and purged. Nothing on this machine
# outside a temporary directory is touched.
#   bash tst_paquet.sh BUILD_DIR SOURCE_DIR
set -uo pipefail

[ $# -eq 2 ] || { echo "usage: $0 BUILD_DIR SOURCE_DIR" >&2; exit 2; }
CONSTRUCTION=$(cd "$1" && pwd -P) || exit 2

NOM=acquisitionradio
ECHECS=0

echec() { echo "FAIL: $*" >&2; ECHECS=$((ECHECS + 1)); }
fatal() { echo "FAIL: $*" >&2; exit 1; }
VUS=0
# Closes a group of checks: "ok" only when none of them failed since the last one.
ok() {
    if [ $ECHECS -eq $VUS ]; then echo "ok: $*"; else echo "FAILED: $*" >&2; fi
    VUS=$ECHECS
}

for outil in cpack dpkg dpkg-deb file readelf start-stop-daemon update-rc.d deb-systemd-helper \
    logrotate sqlite3 ss zcat lintian systemd-analyze man; do
    command -v "$outil" >/dev/null ||
        fatal "the tool '$outil' is missing (scripts/installer.sh installs what the tests need)"
done
[ -r /lib/lsb/init-functions ] || fatal "/lib/lsb/init-functions is missing (sysvinit-utils)"
[ -f "$CONSTRUCTION/CPackConfig.cmake" ] || fatal "no CPackConfig.cmake in $CONSTRUCTION"
[ -x "$CONSTRUCTION/src/$NOM" ] || fatal "the daemon is not built in $CONSTRUCTION/src"

TRAVAIL=$(mktemp -d) || exit 1
TRAVAIL=$(cd "$TRAVAIL" && pwd -P)
RACINE=$TRAVAIL/racine
PIDS_LANCES=()

nettoyer() {
    local pid
    # Only the daemons this test started: by the pid it got or the pid file it wrote.
    [ -s "$RACINE/run/$NOM.pid" ] && PIDS_LANCES+=("$(cat "$RACINE/run/$NOM.pid")")
    for pid in "${PIDS_LANCES[@]}"; do
        if [ "$(readlink "/proc/$pid/exe" 2>/dev/null)" = "$RACINE/usr/bin/$NOM" ]; then
            kill -KILL "$pid" 2>/dev/null
        fi
    done
    rm -rf "$TRAVAIL"
}
trap nettoyer EXIT
trap 'exit 1' INT TERM

# What must hold on this machine after the test: it knew nothing of the
# package, and none of the package's paths existed here that did not before.
etat_hote() {
    dpkg-query -W -f='${Status}\n' "$NOM" 2>/dev/null
    ls -d /etc/init.d/$NOM /etc/default/$NOM /etc/logrotate.d/$NOM /etc/rc?.d/[SK]??$NOM \
        /run/$NOM.pid /lib/systemd/system/$NOM.service /etc/systemd/system/*/$NOM.service 2>/dev/null
}
HOTE_AVANT=$(etat_hote)

valeur_cache() {
    sed -n "s/^$1:[A-Z]*=//p" "$CONSTRUCTION/CMakeCache.txt" | head -n 1
}

# --- Build -----------------------------------------------------------------
(cd "$CONSTRUCTION" && cpack -G DEB --config CPackConfig.cmake -B "$TRAVAIL/paquet") \
    >"$TRAVAIL/cpack.log" 2>&1 || { cat "$TRAVAIL/cpack.log" >&2; fatal "cpack -G DEB failed"; }
PAQUETS=("$TRAVAIL"/paquet/*.deb)
[ ${#PAQUETS[@]} -eq 1 ] && [ -f "${PAQUETS[0]}" ] ||
    fatal "cpack made ${#PAQUETS[@]} .deb files: ${PAQUETS[*]}"
DEB=${PAQUETS[0]}
ok "built $(basename "$DEB")"

# --- lintian ------------------------------------------------------------------
# Kept, as the README says: the package is the vendor's, never uploaded to
# Debian, so no Debian bug closes its first version.
lintian --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$DEB" \
    >"$TRAVAIL/lintian.log" 2>&1 || { cat "$TRAVAIL/lintian.log" >&2; echec "lintian"; }
ok "lintian: no error, no warning but the one kept"

# --- Control fields --------------------------------------------------------
champ() { dpkg-deb -f "$DEB" "$1"; }
VERSION=$(valeur_cache CMAKE_PROJECT_VERSION)
ARCH_HOTE=$(dpkg --print-architecture)
ARCH=$(champ Architecture)
[ "$(champ Package)" = "$NOM" ] || echec "Package is '$(champ Package)', not $NOM"
VERSION=$VERSION-$(valeur_cache ACQUISITIONRADIO_REVISION_DEB)
[ "$(champ Version)" = "$VERSION" ] || echec "Version is '$(champ Version)', expected '$VERSION'"
for nom_champ in Maintainer Section Priority Description; do
    [ -n "$(champ "$nom_champ")" ] || echec "the control field $nom_champ is empty"
done
DEPENDS=$(champ Depends)
depend_de() { grep -Eq "(^|, )$1( |,|$)" <<<"$DEPENDS"; }
# What no linker sees: the SQLite driver plugin and the init script's functions.
for dependance in libqt5sql5-sqlite sysvinit-utils; do
    depend_de "$dependance" || echec "Depends lacks '$dependance': $DEPENDS"
done
# A native build is packaged for this machine; a cross build for its target,
# which the program inside must match.
ARCH_ATTENDUE=$(valeur_cache ACQUISITIONRADIO_ARCHITECTURE_DEB)
[ -n "$ARCH_ATTENDUE" ] || [ -n "$(valeur_cache CMAKE_TOOLCHAIN_FILE)" ] || ARCH_ATTENDUE=$ARCH_HOTE
[ -z "$ARCH_ATTENDUE" ] || [ "$ARCH" = "$ARCH_ATTENDUE" ] ||
    echec "Architecture is '$ARCH', expected '$ARCH_ATTENDUE'"
case $ARCH in
amd64) machine='x86-64' ;;
i386) machine='Intel 80386' ;;
armhf) machine='ARM, EABI5.*ld-linux-armhf' ;;
arm64) machine='ARM aarch64' ;;
*) machine='' ;;
esac
# Every program in the package is built for that architecture, and each Qt
# library it is linked with is in Depends.
mkdir -p "$TRAVAIL/donnees"
dpkg-deb -x "$DEB" "$TRAVAIL/donnees"
for programme in "$TRAVAIL"/donnees/usr/bin/*; do
    elf=$(file -b "$programme")
    [ -z "$machine" ] || grep -Eq "^ELF .*$machine" <<<"$elf" ||
        echec "Architecture is '$ARCH' but /usr/bin/${programme##*/} is: $elf"
    for bibliotheque in $(readelf -d "$programme" | sed -n 's/.*(NEEDED).*\[libQt5\([A-Za-z]*\)\.so\.5\]/\1/p'); do
        case $bibliotheque in
        Core) paquet_qt=libqt5core5a ;;
        *) paquet_qt=libqt5$(tr '[:upper:]' '[:lower:]' <<<"$bibliotheque")5 ;;
        esac
        depend_de "$paquet_qt" ||
            echec "/usr/bin/${programme##*/} needs libQt5$bibliotheque but Depends lacks $paquet_qt"
    done
done
ok "control: $(champ Package) $(champ Version) $ARCH; Depends: $DEPENDS"

# --- Contents --------------------------------------------------------------
# "mode owner path" for each entry, directories with their trailing slash.
dpkg-deb -c "$DEB" | awk '{ print $1, $2, $6 }' >"$TRAVAIL/contenu"
attendus="-rwxr-xr-x root/root ./usr/bin/$NOM
-rwxr-xr-x root/root ./usr/bin/vueradio
-rwxr-xr-x root/root ./usr/libexec/$NOM/veille
-rwxr-xr-x root/root ./etc/init.d/$NOM
-rw-r--r-- root/root ./lib/systemd/system/$NOM.service
-rw-r--r-- root/root ./etc/default/$NOM
-rw-r--r-- root/root ./etc/logrotate.d/$NOM
-rw-r--r-- root/root ./usr/share/doc/$NOM/copyright
-rw-r--r-- root/root ./usr/share/doc/$NOM/changelog.Debian.gz
-rw-r--r-- root/root ./usr/share/man/man8/$NOM.8.gz
-rw-r--r-- root/root ./usr/share/man/man1/vueradio.1.gz"
while read -r ligne; do
    grep -qxF -e "$ligne" "$TRAVAIL/contenu" || echec "the package lacks '$ligne'"
done <<<"$attendus"
# Other programs installed to bin (the technician's inspector) may come along;
# nothing else may.
inattendus=$(grep -v '^d' "$TRAVAIL/contenu" | grep -vxF -e "$attendus" |
    grep -v '^-rwxr-xr-x root/root \./usr/bin/[^/]*$')
[ -z "$inattendus" ] || echec "files the package should not hold: $inattendus"

dpkg-deb -e "$DEB" "$TRAVAIL/controle"
printf '/etc/init.d/%s\n/etc/default/%s\n/etc/logrotate.d/%s\n' "$NOM" "$NOM" "$NOM" \
    >"$TRAVAIL/conffiles.attendus"
dpkg-deb -I "$DEB" conffiles | sort | diff -u <(sort "$TRAVAIL/conffiles.attendus") - ||
    echec "conffiles (shown by dpkg-deb -I) is not the three files under /etc"
for script in postinst prerm postrm; do
    [ -x "$TRAVAIL/controle/$script" ] || echec "maintainer script $script missing or not executable"
    sh -n "$TRAVAIL/controle/$script" || echec "maintainer script $script: syntax error"
done
ok "contents: $(wc -l <"$TRAVAIL/contenu") entries, conffiles and maintainer scripts"

# --- Install into a scratch root --------------------------------------------
mkdir -p "$RACINE/var/lib/dpkg/info" "$RACINE/var/lib/dpkg/updates" "$RACINE/var/log" \
    "$RACINE/run" "$TRAVAIL/tmp"
: >"$RACINE/var/lib/dpkg/status"
DPKG=(dpkg "--root=$RACINE" "--log=$TRAVAIL/dpkg.log" --force-script-chrootless --force-depends)
[ "$ARCH" = "$ARCH_HOTE" ] || DPKG+=(--force-architecture)
[ "$(id -u)" -eq 0 ] || DPKG+=(--force-not-root)
"${DPKG[@]}" -i "$DEB" >"$TRAVAIL/dpkg-i.log" 2>&1 || {
    cat "$TRAVAIL/dpkg-i.log" >&2
    fatal "dpkg --root -i failed (the maintainer scripts must work under DPKG_ROOT)"
}
etat=$(dpkg-query "--admindir=$RACINE/var/lib/dpkg" -W -f='${Status}' "$NOM")
[ "$etat" = "install ok installed" ] || echec "package state after dpkg -i: '$etat'"
[ -d "$RACINE/var/base" ] || echec "/var/base not created by the postinst"
# Enabled as deb-systemd-helper does it, also under DPKG_ROOT.
VOULU=$RACINE/etc/systemd/system/multi-user.target.wants/$NOM.service
[ "$(readlink "$VOULU")" = "/lib/systemd/system/$NOM.service" ] ||
    echec "the unit is not enabled: $VOULU -> '$(readlink "$VOULU")'"

# The unit as systemd reads it, with the installed program and the shipped
# manual page (dpkg may be set to leave manual pages out).
sed "s|/usr/bin/$NOM|$RACINE/usr/bin/$NOM|" "$RACINE/lib/systemd/system/$NOM.service" \
    >"$TRAVAIL/$NOM.service"
MANPATH=$TRAVAIL/donnees/usr/share/man systemd-analyze verify "$TRAVAIL/$NOM.service" \
    >"$TRAVAIL/verify.log" 2>&1 || { cat "$TRAVAIL/verify.log" >&2; echec "systemd-analyze verify"; }
for reglage in 'Type=simple' 'ExecStart=/usr/bin/acquisitionradio $OPTIONS' 'Restart=on-failure' \
    'EnvironmentFile=-/etc/default/acquisitionradio' 'StandardError=journal' 'After=.*tunslip6.service'; do
    grep -qx "$reglage" "$RACINE/lib/systemd/system/$NOM.service" || echec "the unit lacks $reglage"
done
# Anything that would hide /tmp's key files or the System V segments.
grep -Eq '^(PrivateTmp|PrivateIPC|ProtectSystem=strict|DynamicUser)' \
    "$RACINE/lib/systemd/system/$NOM.service" && echec "the unit cuts the daemon off /tmp or IPC"
ok "installed under $RACINE; the unit enabled and verified by systemd-analyze"

# Under DPKG_ROOT the postinst leaves the init links alone, as debhelper's does:
# update-rc.d links the script by its header, started in 2-5, stopped in 0, 1, 6.
DPKG_ROOT=$RACINE update-rc.d "$NOM" defaults >/dev/null || echec "update-rc.d defaults"
for niveau in 0 1 2 3 4 5 6; do
    case $niveau in [2345]) sorte=S ;; *) sorte=K ;; esac
    liens=("$RACINE/etc/rc$niveau.d/$sorte"[0-9][0-9]"$NOM")
    if [ ! -L "${liens[0]}" ]; then
        echec "no $sorte link for $NOM in /etc/rc$niveau.d"
    elif [ "$(readlink "${liens[0]}")" != "../init.d/$NOM" ]; then
        echec "${liens[0]} points to $(readlink "${liens[0]}")"
    fi
done
DPKG_ROOT=$RACINE update-rc.d -f "$NOM" remove >/dev/null || echec "update-rc.d remove"
ok "the init script's header gives its runlevels"

# --- The installed daemon under its init script and watcher -------------------
port_libre() {
    local port
    for _ in $(seq 50); do
        port=$((20000 + RANDOM % 40000))
        ss -Hln -u "( sport = :$port )" | grep -q . || { echo "$port"; return; }
    done
    return 1
}
PORT=$(port_libre) || fatal "no free UDP port found"
# The daemon's files, commands, socket and shared memory, and the init script's
# paths, all stay in the scratch root.
BAC=(env -i "PATH=$PATH" "HOME=$TRAVAIL" LANG=C.UTF-8 "TMPDIR=$TRAVAIL/tmp" "ACQUISITIONRADIO_RACINE=$RACINE"
     ACQUISITIONRADIO_ADRESSE=::1 "ACQUISITIONRADIO_PORT=$PORT")

attendre() { # attendre SECONDS COMMAND...: polls the command until it succeeds
    local fin=$((SECONDS + $1))
    shift
    until "$@"; do
        [ $SECONDS -lt $fin ] || return 1
        sleep 0.2
    done
}
base_creee() {
    [ "$(sqlite3 "$RACINE/var/base/hf.db" \
        "SELECT count(*) FROM sqlite_master WHERE name IN ('modules','mesures_hf','mesures_taux')" \
        2>/dev/null)" = 3 ]
}

SCRIPT=$RACINE/etc/init.d/$NOM
sh -n "$SCRIPT" || echec "init script: syntax error"
for champ_lsb in 'Provides:[[:space:]]+acquisitionradio$' 'Required-Start:.*[[:space:]]tunslip6([[:space:]]|$)' \
    'Default-Start:[[:space:]]+2 3 4 5$'; do
    grep -Eq "^# $champ_lsb" "$SCRIPT" || echec "init script header lacks '$champ_lsb'"
done
INIT=("${BAC[@]}" SYSTEMCTL_SKIP_REDIRECT=1 sh "$SCRIPT")
PIDFILE=$RACINE/run/$NOM.pid
JOURNAL=$RACINE/var/log/$NOM.log
RELANCE=$(sed -n 's/^RELANCE=\([0-9]*\).*/\1/p' "$SCRIPT")
action() { # action NAME EXPECTED_STATUS
    "${INIT[@]}" "$1" >"$TRAVAIL/init.log" 2>&1
    local code=$?
    [ "$code" -eq "$2" ] || { echec "init script '$1' returned $code, expected $2:"; cat "$TRAVAIL/init.log" >&2; }
}
pid_courant() { cat "$PIDFILE" 2>/dev/null; }
vivant() { [ -n "$1" ] && [ "$(readlink "/proc/$1/exe" 2>/dev/null)" = "$RACINE/usr/bin/$NOM" ]; }
arrete() { ! vivant "$1"; }
remplace() { local p; p=$(pid_courant); [ "$p" != "$1" ] && vivant "$p"; } # another daemon runs
ligne_commande() { tr '\0' '|' <"/proc/$1/cmdline"; } # one | after each argument

action status 3
action bogus 3
grep -q 'Usage:' "$TRAVAIL/init.log" || echec "init script: no usage line for an unknown action"
if [ "$ARCH" != "$ARCH_HOTE" ]; then
    echo "note: a $ARCH package is not run on this $ARCH_HOTE machine"
else
    echecs_avant=$ECHECS
    printf 'OPTIONS="-periode 1 -log"\n' >>"$RACINE/etc/default/$NOM"
    action start 0
    attendre 5 remplace "" || echec "start: no daemon behind the pid file"
    premier=$(pid_courant)
    PIDS_LANCES+=("$premier")
    [ "$(ligne_commande "$premier")" = "$RACINE/usr/bin/$NOM|-periode|1|-log|" ] ||
        echec "start: command line '$(ligne_commande "$premier")' does not carry the OPTIONS of /etc/default"
    # Its messages in the log file, each with the date and time; the first
    # cycle comes one period after the 2 s tunnel restart.
    horodate='^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} '
    attendre 15 grep -Eq "$horodate.* d.*but recuperer_mesures$" "$JOURNAL" ||
        echec "no acquisition cycle in $JOURNAL within 15 s"
    for message in ' \(serveur_udp\) restartTunslip6\(\)$' '[0-9]{2}/[0-9]{2}/[0-9]{4} D.+marrage de AcquisitionRADIO$'; do
        grep -Eq "$horodate.*$message" "$JOURNAL" || echec "no dated line '$message' in $JOURNAL"
    done
    # The radio database needs the SQLite driver, which only the Depends brings.
    base_creee || echec "the installed daemon did not create /var/base/hf.db with its tables"
    action status 0
    action start 0
    [ "$(pid_courant)" = "$premier" ] || echec "a second start replaced the running daemon"

    debut=$SECONDS
    kill -KILL "$premier"
    attendre $((RELANCE + 5)) remplace "$premier" ||
        echec "the daemon killed with SIGKILL was not running again within $((RELANCE + 5)) s"
    echo "note: killed with SIGKILL, running again after about $((SECONDS - debut)) s (RELANCE=$RELANCE)"
    second=$(pid_courant)
    PIDS_LANCES+=("$second")
    grep -q "watcher: the daemon was ended by signal 9; started again in $RELANCE s" "$JOURNAL" ||
        echec "the watcher did not say why it started the daemon again"

    action restart 0
    attendre 5 remplace "$second" && ! vivant "$second" || echec "restart: old pid $second still runs"
    troisieme=$(pid_courant)
    PIDS_LANCES+=("$troisieme")
    veille=$(cat "$RACINE/run/$NOM-veille.pid")
    action stop 0
    attendre 5 arrete "$troisieme" || echec "stop: the daemon $troisieme still runs"
    [ -n "$veille" ] && ! kill -0 "$veille" 2>/dev/null || echec "stop: the watcher $veille still runs"
    [ ! -e "$PIDFILE" ] && [ ! -e "$RACINE/run/$NOM-veille.pid" ] || echec "stop: a pid file stays"
    action status 3
    action stop 0
    [ $ECHECS -eq "$echecs_avant" ] || { echo "--- $JOURNAL" >&2; cat "$JOURNAL" >&2; }
    ok "init script: start, messages kept with their time, respawn after SIGKILL, restart, stop"
fi

# --- Log rotation -----------------------------------------------------------
# The installed configuration, pointed at the root's /var/log.
sed "s|/var/log/|$RACINE/var/log/|g" "$RACINE/etc/logrotate.d/$NOM" >"$TRAVAIL/logrotate.conf"
ROTATION=(logrotate -s "$TRAVAIL/logrotate.etat" "$TRAVAIL/logrotate.conf")
val0=$RACINE/var/log/aradio_val0.txt
rj45=$RACINE/var/log/acquisitionrj45.log
printf 'Sun Nov 15 12:38:33 2026 Voie 3 n'"'"'a pas de QConnexionRJ45 développé' >"$val0"
printf 'message\n' >>"$JOURNAL"
: >"$rj45"
inode=$(stat -c %i "$val0")
"${ROTATION[@]}" -f 2>"$TRAVAIL/logrotate.log" || { cat "$TRAVAIL/logrotate.log" >&2; echec "logrotate failed"; }
[ -f "$val0" ] && [ ! -s "$val0" ] && [ "$(stat -c %i "$val0")" = "$inode" ] ||
    echec "the val0 log was not truncated in place (copytruncate)"
zcat "$val0.1.gz" 2>/dev/null | grep -q 'Voie 3' || echec "no rotated copy $val0.1.gz with the old lines"
# The messages' last copy stays plain, for vueradio sante.
[ ! -s "$JOURNAL" ] && grep -q '^message$' "$JOURNAL.1" || echec "no plain copy $JOURNAL.1"
[ ! -e "$rj45.1.gz" ] || echec "an empty log was rotated (notifempty)"
rm -f "$rj45"
"${ROTATION[@]}" -f 2>"$TRAVAIL/logrotate.log" || { cat "$TRAVAIL/logrotate.log" >&2; echec "logrotate failed on a missing log (missingok)"; }
ok "logrotate: copy and truncate in place, empty and missing logs left alone"

# --- Remove, then purge -----------------------------------------------------
"${DPKG[@]}" -r "$NOM" >"$TRAVAIL/dpkg-r.log" 2>&1 || { cat "$TRAVAIL/dpkg-r.log" >&2; echec "dpkg --root -r failed"; }
[ ! -e "$RACINE/usr/bin/$NOM" ] || echec "remove left /usr/bin/$NOM"
[ -f "$RACINE/etc/default/$NOM" ] && [ -f "$SCRIPT" ] || echec "remove took the conffiles away"
[ ! -x "$SCRIPT" ] || echec "remove left the init script executable"
action start 0 # the daemon is gone: the leftover script does nothing
[ ! -e "$PIDFILE" ] || echec "the leftover init script started something"
"${DPKG[@]}" -P "$NOM" >"$TRAVAIL/dpkg-P.log" 2>&1 || { cat "$TRAVAIL/dpkg-P.log" >&2; echec "dpkg --root -P failed"; }
restes=$(ls -d "$RACINE"/etc/init.d/$NOM "$RACINE"/etc/default/$NOM "$VOULU" 2>/dev/null)
[ -z "$restes" ] || echec "purge left: $restes"
[ -d "$RACINE/var/base" ] || echec "purge took /var/base away"
ok "removed (conffiles kept), then purged (conffiles and the unit's links gone, data kept)"

[ "$(etat_hote)" = "$HOTE_AVANT" ] || echec "this machine's own state changed: '$HOTE_AVANT' -> '$(etat_hote)'"

if [ $ECHECS -ne 0 ]; then
    echo "tst_paquet: $ECHECS check(s) failed" >&2
    exit 1
fi
echo "tst_paquet: all checks passed"
