#!/usr/bin/env bash
# Checks that each point of docs/reliability.md, numbered without a gap, names what holds it, and that this exists: a file
# of the tree, or a test as Suite.Name.
set -uo pipefail
cd "$(dirname "$0")/../.." || exit 1

status=0
fail() { echo "docs/reliability.md: $*"; status=1; }

points=$(sed -n '/^## Promises/,/^## No promises/p' docs/reliability.md | tr '\n' ' ' | sed 's/- \*\*R/\n**R/g' | grep '^\*\*R')
number=0
while IFS= read -r point; do
    number=$((number + 1))
    [[ $point == "**R$number** "* ]] || fail "R$number is due where '${point:0:20}' stands"
    references=$(sed 's/^[^[]*//' <<<"$point" | grep -o '`[^`]*`' | tr -d '`')
    [ -n "$references" ] || fail "R$number names no test"
    for reference in $references; do
        case $reference in
        */*) [ -e "$reference" ] ;;
        *) grep -Eqr "^TEST(_F|_P)?\(${reference/./, }\)" tests ;;
        esac || fail "R$number: there is no $reference"
    done
done <<<"$points"
[ "$number" -ge 10 ] || fail "only $number points found"
exit $status
