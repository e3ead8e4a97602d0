#!/bin/sh
# modla(1), with what the program says of itself in the place of the lines .HELP and .VERBS
# page1.sh PAGE CONSOLE
set -eu
# Lines as they are, in roff.
verbatim() {
    echo .nf
    sed 's/\\/\\e/g; s/-/\\-/g; s/^[.'"'"']/\\\&&/'
    echo .fi
}
help=$("$2" --help)
while IFS= read -r line; do
    case $line in
        .HELP) printf '%s\n' "$help" | verbatim ;;
        .VERBS)
            for verb in $(printf '%s\n' "$help" | sed -n '/^The verbs:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
                echo ".SS $verb"
                "$2" "$verb" --help | verbatim
            done
            ;;
        *) printf '%s\n' "$line" ;;
    esac
done <"$1"
