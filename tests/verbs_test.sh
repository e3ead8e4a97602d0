#!/bin/sh
# Commands of the shell on record: behind "$ " stands a command, below it what it prints and its status, if not 0.
# verbs_test.sh CONSOLE TRANSCRIPT
set -eu
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"
ln -s "$1" modla
PATH=$directory:$PATH
while IFS= read -r line; do
    case $line in
        '$ '*)
            printf '%s\n' "$line"
            status=0
            (eval "${line#??}") 2>&1 </dev/null || status=$?
            [ $status = 0 ] || echo "[status $status]"
            ;;
        '#'* | '') printf '%s\n' "$line" ;;
    esac
done <"$2" >output
diff "$2" output
