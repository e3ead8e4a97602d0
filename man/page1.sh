#!/bin/sh
# modla(1), with what the program says of itself in the place of the line .HELP
# page1.sh PAGE CONSOLE
set -eu
help=$("$2" --help)
while IFS= read -r line; do
    if [ "$line" = .HELP ]; then
        echo .nf
        printf '%s\n' "$help" | sed 's/\\/\\e/g; s/-/\\-/g; s/^[.'"'"']/\\\&&/'
        echo .fi
    else
        printf '%s\n' "$line"
    fi
done <"$1"
