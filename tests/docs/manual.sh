#!/usr/bin/env bash
# Checks a manual page: mandoc finds no fault, and the page and the program's --help, of every command, tell of the same
# commands, arguments, options and defaults. In the page a command has a subsection of its name, an option an item there
# (".It Fl -name"), a default the words "Default: VALUE." in it; what holds for all commands stands before the first.
# usage: manual.sh PAGE [PROGRAM]        without the program, which this build may lack, the page alone
set -uo pipefail
page=$1 program=${2:-}

status=0
fail() { echo "$page: $*" >&2; status=1; }

mandoc -Tlint -Wwarning "$page" || fail "mandoc has something to say"
[ -n "$program" ] || exit $status

# told_by_help [COMMAND...]: lines "COMMAND|OPTION|DEFAULT" of this command and those below it. --help itself, which every
# command has, counts for the program only.
told_by_help() {
    local help level="$*" command
    help=$(COLUMNS=120 "$program" "$@" --help) || fail "'$level --help' fails"
    echo "$level||"
    awk -v level="$level" '
        /^[A-Z][a-z]+:$/ { part = $1 }
        part == "Positionals:" && /^  [A-Z]/ { print level "|" $1 "|" }
        part == "Options:" && /^  -/ {
            name = $1
            sub(/^-.,/, "", name)
            if (name == "--help" && level != "") next
            # Types, too, have a sign of equality: FIELD=VALUE.
            value = match($2, /=[^A-Z]*$/) ? substr($2, RSTART + 1) : ""
            print level "|" name "|" value
        }' <<<"$help"
    for command in $(awk '/^[A-Z][a-z]+:$/ { part = $1 } part == "Subcommands:" && /^  [a-z]/ { print $1 }' <<<"$help"); do
        told_by_help "$@" "$command"
    done
}
# The same of the page.
told_by_page() {
    awk '
        function flush() { if (item != "") print level "|" item "|" value; item = "" }
        /^\.Sh / { flush(); commands = $0 == ".Sh COMMANDS"; level = ""; described = commands || $0 == ".Sh DESCRIPTION" }
        $0 == ".Sh DESCRIPTION" { print "||" }
        /^\.Ss / && commands { flush(); level = substr($0, 5); print level "||" }
        /^\.It (Fl|Ar) / && described {
            flush()
            value = ""
            item = $3
            for (i = 2; i < NF; i++) if ($i == "Fl" && $(i + 1) ~ /^-/) item = "-" $(i + 1)
        }
        /^\.El/ { flush() }
        /^Default: / { value = $2; sub(/\.$/, "", value) }
        END { flush() }' "$page"
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
told_by_help >"$work/help"
told_by_page >"$work/page"
[ "$(grep -c -e '|--' "$work/help")" -ge 2 ] || fail "hardly any option found in --help"
diff <(sort "$work/help") <(sort "$work/page") ||
    fail "--help (<) and the page (>) differ, as command|option|default"
exit $status
