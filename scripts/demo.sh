#!/usr/bin/env bash
# The radio acquisition service at work, in a sandbox: a simulated main
# application (the live table in this terminal), a simulated radio network of
# ten modules sending real UDP frames, and the daemon between them.
#
#   scripts/demo.sh [--duree SECONDS] [--periode SECONDS] [--dossier DIR]
#
# Ctrl-C stops everything: the daemon first, then the network, then the
# main application, which removes the shared segments. Everything the demo
# writes stays in the sandbox (default ./demo): the daemon's log, the
# network's frames, the calls of the stub tunnel and border-router scripts,
# and env.sh, which points vueradio in another terminal at the sandbox
# (". demo/env.sh"). Type commands into the table (enregistrer, voie ...,
# retirer ..., aide).

set -uo pipefail

depot=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dossier="$depot/demo"
duree=""
periode=5
while [ $# -gt 0 ]; do
    case "$1" in
        --duree) duree=${2:?--duree needs seconds}; shift 2 ;;
        --periode) periode=${2:?--periode needs seconds}; shift 2 ;;
        --dossier) dossier=${2:?--dossier needs a directory}; shift 2 ;;
        -h|--help) sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        *) echo "demo.sh: unknown argument $1 (see --help)" >&2; exit 2 ;;
    esac
done

case "$duree$periode" in
    *[!0-9]*) echo "demo.sh: --duree and --periode take whole seconds" >&2; exit 2 ;;
esac

# --- build if needed --------------------------------------------------------
construction="${BUILD_DIR:-$depot/build}"
# Installs only the Debian packages the machine lacks.
"$depot/scripts/installer.sh" || exit 1
if [ ! -f "$construction/CMakeCache.txt" ]; then
    cmake -S "$depot" -B "$construction" || exit 1
fi
make -C "$construction" -j"$(nproc)" acquisitionradio simulateur_appareil simulateur_reseau vueradio \
    >"${TMPDIR:-/tmp}/demo-construction.$$.log" 2>&1 || {
    cat "${TMPDIR:-/tmp}/demo-construction.$$.log" >&2
    rm -f "${TMPDIR:-/tmp}/demo-construction.$$.log"
    echo "demo.sh: the build failed" >&2
    exit 1
}
rm -f "${TMPDIR:-/tmp}/demo-construction.$$.log"
daemon="$construction/src/acquisitionradio"
appareil="$construction/tools/simulateur_appareil/simulateur_appareil"
reseau="$construction/tools/simulateur_reseau/simulateur_reseau"

# --- sandbox ----------------------------------------------------------------
mkdir -p "$dossier" || exit 1
dossier=$(cd "$dossier" && pwd)
racine="$dossier/racine"
# Only what an earlier demo left is removed, never the directory itself.
rm -rf "$racine" "$dossier/tmp"
rm -f "$dossier"/{appels.txt,env.sh,reseau.log,appareil.conf,reseau.conf,commandes}
mkdir -p "$racine"/{var/base,var/log,root,run,etc/init.d,etc/scripts} "$dossier/tmp"
# Where the init script keeps the daemon's messages, so that vueradio sante finds them.
journal="$racine/var/log/acquisitionradio.log"

# The tunnel and border-router scripts only record that they were called.
for script in etc/init.d/tunslip6 etc/scripts/reset_br.sh etc/scripts/repair_br.sh; do
    cat >"$racine/$script" <<EOF
#!/bin/sh
echo "\$(date +%H:%M:%S) \$(basename "\$0")\${1:+ \$1}" >> '$dossier/appels.txt'
EOF
    chmod +x "$racine/$script"
done
touch "$dossier/appels.txt"
printf 'fd00::1\n' >"$racine/root/br_itessalin.txt"

port_libre() {
    local p
    for _ in $(seq 50); do
        p=$((20000 + RANDOM % 40000))
        if ! ss -Hlun 2>/dev/null | awk '{print $4}' | grep -q "[:.]$p\$"; then
            echo "$p"
            return
        fi
    done
    echo 5042
}

export ACQUISITIONRADIO_RACINE="$racine"
export ACQUISITIONRADIO_ADRESSE="::1"
export ACQUISITIONRADIO_PORT
ACQUISITIONRADIO_PORT=$(port_libre)
export TMPDIR="$dossier/tmp"

# For vueradio in another terminal: ". demo/env.sh". The live table shows it too.
{
    printf 'export TMPDIR=%q\n' "$TMPDIR"
    printf 'export ACQUISITIONRADIO_RACINE=%q\n' "$ACQUISITIONRADIO_RACINE"
    printf 'export ACQUISITIONRADIO_PORT=%q\n' "$ACQUISITIONRADIO_PORT"
} >"$dossier/env.sh"
echo "Demo on UDP port $ACQUISITIONRADIO_PORT. In another terminal:"
echo "  . $dossier/env.sh && $construction/tools/vueradio/vueradio sante"

cat >"$dossier/appareil.conf" <<'EOF'
type Aucun
type PT100
type 4-20mA
type Contact
type RADIO
type "RADIO Contact"

voie 1 RADIO 00000011 0             # temperature, module right under the border router
voie 2 RADIO 00000012 0 0.5         # first value of a B module, +0.5 offset
voie 3 RADIO 00000012 1             # its second value
voie 4 RADIO 00000013 2             # battery of the relay module (R frames carry no value)
voie 5 RADIO 00000021 0             # second level
voie 6 "RADIO Contact" 00000022 0   # door contact: 1 when the value is above 0
voie 7 "RADIO Contact" 00000022 1   # the same module's supply indicator
voie 8 RADIO 00000023 0
voie 9 RADIO 00000024 0 -1
voie 10 RADIO 00000031 0            # third level
voie 11 RADIO 00000032 1
voie 12 RADIO 00000033 0            # falls silent after a minute: see the repair in appels.txt
voie 13 PT100 "" 0              # a wired channel, never written by the radio service
EOF

cat >"$dossier/reseau.conf" <<'EOF'
module=00000011 parent=BR   type=A periode=10 valeur=sinus(21,2,120)
module=00000012 parent=BR   type=B periode=10 valeur=sinus(4,1,300) valeur2=hasard(70,80)
module=00000013 parent=BR   type=R periode=15
module=00000021 parent=00000011 type=A periode=10 valeur=rampe(-20,0.1)
module=00000022 parent=00000011 type=E periode=10 valeur=alterne(0,0,0,1,1) valeur2=0 alim=1
module=00000023 parent=00000012 type=B periode=12 valeur=hasard(60,65) valeur2=hasard(30,40) batterie=3.2
module=00000024 parent=00000013 type=A periode=10 valeur=sinus(65,5,600)
module=00000031 parent=00000021 type=A periode=10 valeur=-18.5 batterie=2.9
module=00000032 parent=00000022 type=E periode=10 valeur=12.5 valeur2=1 alim=0
module=00000033 parent=00000023 type=B periode=10 valeur=4.2 valeur2=81 silence=60+420
EOF

# --- stop, in the order that leaves nothing behind ---------------------------
pid_daemon=""
pid_reseau=""
pid_appareil=""

arreter_processus() {
    local pid=$1
    [ -n "$pid" ] || return 0
    if kill -0 "$pid" 2>/dev/null; then
        kill -TERM "$pid" 2>/dev/null
    fi
    wait "$pid" 2>/dev/null
    return 0
}

arreter() {
    trap - EXIT INT TERM HUP
    # The daemon attaches the segments only during a cycle; stopped first, it
    # can never be the last one attached.
    arreter_processus "$pid_daemon"
    arreter_processus "$pid_reseau"
    arreter_processus "$pid_appareil"
    # A main application that left first (command 'quitter') may have left a
    # segment to a daemon then stopped mid-cycle: take it over and remove it.
    if compgen -G "$TMPDIR/qipc_*" >/dev/null; then
        "$appareil" --sans-tableau --duree 0 </dev/null >/dev/null 2>&1
    fi
    echo
    echo "Demo stopped. Sandbox: $dossier"
    echo "  daemon log: $journal"
    echo "  frames sent: $dossier/reseau.log"
    echo "  tunnel and border-router calls: $dossier/appels.txt"
}
trap arreter EXIT
trap 'exit 130' INT TERM HUP

# --- start --------------------------------------------------------------------
# The service reads the channel types once, at its start: the device database
# must exist before it.
"$appareil" --config "$dossier/appareil.conf" --base-seulement || exit 1

entree=/dev/null
if [ -t 0 ] && [ -r /dev/tty ]; then
    entree=/dev/tty
fi
options_appareil=(--config "$dossier/appareil.conf" --raz-battement --commandes "$dossier/commandes"
                  --suivre "$dossier/reseau.log" --suivre "$dossier/appels.txt"
                  --suivre "$dossier/env.sh")
# Started in the background so that Ctrl-C reaches this script alone (a
# script's background jobs ignore it) and the stops keep their order.
"$appareil" "${options_appareil[@]}" <"$entree" &
pid_appareil=$!

"$reseau" --config "$dossier/reseau.conf" --adresse ::1 --port "$ACQUISITIONRADIO_PORT" \
    >"$dossier/reseau.log" 2>&1 </dev/null &
pid_reseau=$!

"$daemon" -log -periode "$periode" >"$journal" 2>&1 </dev/null &
pid_daemon=$!

if [ -n "$duree" ]; then
    # Timed run (scripts, CI): stop after the given time, in the same order.
    fin=$((SECONDS + duree))
    while [ "$SECONDS" -lt "$fin" ] && kill -0 "$pid_appareil" 2>/dev/null; do
        sleep 1
    done
else
    wait "$pid_appareil"
fi
