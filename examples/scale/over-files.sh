#!/usr/bin/env bash
# Judges files of transactions side by side, with GNU parallel (Debian: parallel).
#
#   over-files.sh FOLDER FILE... [-- OPTION...]
#
# What came of each FILE stands in FOLDER, under its name and ".out", when all of it was judged; a
# file that has its ".out" is passed over. So after a failure, or a reboot, the same command does
# the rest. OPTIONs are those of quillfence batch. Exit status: 0 when every file is judged, 3 when
# some of them hold lines "error", 2 when something is left to do.
# QUILLFENCE names the program, PARALLEL holds parallel's own options, as in PARALLEL='--jobs 4'.
set -uo pipefail

folder=${1:?the folder for what comes of it}
shift
files=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    files+=("$1")
    shift
done
[ $# = 0 ] || shift
[ ${#files[@]} -gt 0 ] || { echo "over-files.sh: no files" >&2; exit 2; }
twice=$(basename -a "${files[@]}" | sort | uniq -d)
[ -z "$twice" ] || { echo "over-files.sh: two files have the name $twice" >&2; exit 2; }
mkdir -p "$folder" || exit 2
export QUILLFENCE=${QUILLFENCE:-quillfence}

# judge FOLDER FILE OPTION...: one process of one thread. An interrupted run would end with status 3
# and a part of the lines, so it does not listen; killed, it leaves no ".out".
judge() {
    local out part status=0
    out=$1/$(basename "$2").out
    part=$out.$BASHPID.part
    [ ! -e "$out" ] || return 0
    (
        trap '' INT TERM
        exec "$QUILLFENCE" batch --jobs 1 --quiet "${@:3}" "$2"
    ) >"$part" || status=$?
    case $status in
    0) ;;
    3) touch "$1/errors" ;;
    *)
        rm -f "$part"
        return "$status"
        ;;
    esac
    sync "$part" && mv "$part" "$out"
}
export -f judge

parallel --quote judge "$folder" {} "$@" ::: "${files[@]}"

left=0
for file in "${files[@]}"; do
    if [ ! -e "$folder/$(basename "$file").out" ]; then
        echo "over-files.sh: $file is still to be judged" >&2
        left=1
    fi
done
[ $left = 0 ] || exit 2
[ ! -e "$folder/errors" ] || exit 3
