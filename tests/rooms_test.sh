#!/bin/sh
# Arrows between rooms point down, no files include each other in a circle, and instruction sets stay in the engine.
# rooms_test.sh SOURCE-DIRECTORY
set -eu
cd "$1"
failed=0
fail() { echo "FAILED: $*"; failed=1; }

# What each room may include besides itself and the public header.
below() {
    case $1 in
        residue | blocks) ;;
        engine | host) echo "residue blocks" ;;
        values) echo "residue blocks engine host" ;;
        products | elimination | objects) echo "residue blocks engine host values" ;;
    esac
}
arrows=$(mktemp)
trap 'rm -f "$arrows"' EXIT
for room in residue blocks engine host values products elimination objects; do
    grep -Ho '^ *#include "[a-z]*/[^"]*' $room/*.* | sed 's/: *#include "/ /' >>"$arrows"
    for other in $(sed -n "s|^$room/[^ ]* \\([a-z]*\\)/.*|\\1|p" "$arrows" | sort -u); do
        case " $room $(below $room) " in *" $other "*) ;; *) fail "$room includes $other" ;; esac
    done
    [ $room = engine ] || ! grep -l 'intrin\.h' $room/* || fail "$room knows an instruction set"
done
[ "$(wc -l <"$arrows")" -gt 100 ] || fail "only these includes were found: $(cat "$arrows")"
# A header and its source are one.
sed -E 's/\.[a-z]+//g' "$arrows" | awk '$1 != $2' | tsort >/dev/null || failed=1
exit $failed
