#!/usr/bin/env bash
# Checks qos-agent as a service, without a running systemd: the unit, how little it lets the program do, what the scripts
# of the package do with it, and that the configuration that it comes with samples every path.
# usage: service.sh QOS_HOST                           exits 77 where there is no systemd-analyze
set -euo pipefail
export LC_ALL=C
qos_host=$1
service=$(cd "$(dirname "$0")/../../packaging/qos-agent" && pwd)
command -v systemd-analyze >/dev/null || { echo "skipped: there is no systemd-analyze (package systemd)"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "$1" >&2; exit 1; }

# The unit, with another program in the place of the one that need not be installed here.
printf '#!/bin/sh\n' >program
chmod 755 program
grep -q '^ExecStart=/usr/bin/qos-agent run /etc/nivex-qos/agent.yaml$' "$service/qos-agent.service" ||
    fail "the unit does not start the program with the configuration that are installed"
sed "s|/usr/bin/qos-agent|$work/program|" "$service/qos-agent.service" >qos-agent.service
systemd-analyze verify --man=no --recursive-errors=no "$work/qos-agent.service" || fail "the unit has faults"
systemd-analyze security --no-pager --offline=true --threshold=15 "$work/qos-agent.service" >security ||
    fail "the unit lets the program do too much: $(grep -v '^+' security)"

[ "$(cat "$service/conffiles")" = /etc/nivex-qos/agent.yaml ] || fail "conffiles name another configuration"
diff <("$qos_host" paths --json | grep -o '"alias":"[^"]*"' | cut -d '"' -f 4 | sort) \
    <(sed -n 's/^  [a-z-]*: {path: \([a-z-]*\),.*/\1/p' "$service/agent.yaml" | sort) ||
    fail "agent.yaml does not sample the paths that there are (<) but others (>)"

# The keys in it, also those that stand there as a comment, are those that the manual page describes.
keys=$(sed 's/^\( *\)#\([^ ]\)/\1\2/; /^ *#/d' "$service/agent.yaml" | grep -oE '^[a-z-]+:|[{,] *[a-z-]+:' | tr -d '{:, ' | sort -u)
[ "$(wc -l <<<"$keys")" -ge 10 ] || fail "only these keys found in agent.yaml: $keys"
for key in $keys; do
    sed -n 's/^\.It Cm//p' "$service/../../docs/man/qos-agent.1" | grep -qw -- "$key" || [ "$key" = type ] ||
        fail "qos-agent.1 does not describe the key '$key' of agent.yaml"
done

# The scripts of the package, with commands that only tell of themselves, and where systemd runs or does not.
mkdir tools
for command in systemctl ldconfig; do
    # shellcheck disable=SC2016
    printf '#!/bin/sh\necho %s "$@" >>"%s/calls"\n' $command "$work" >tools/$command
done
chmod 755 tools/*
# script ROOT NAME ARGUMENTS...: the commands that the script of this name gives.
script() {
    : >calls
    sed "s|/run/systemd/system|$work/run|" "$service/$2" >script
    DPKG_ROOT=$1 PATH=$work/tools:$PATH sh ./script "${@:3}" || fail "$2 ${*:3} fails"
    sed 's/ *$//' calls | tr '\n' ';'
}
# gives COMMANDS ROOT NAME ARGUMENTS...
gives() {
    local given
    given=$(script "${@:2}")
    [ "$given" = "$1" ] || fail "${*:3} gives '$given', not '$1'"
}
gives 'ldconfig;' '' postinst configure
mkdir run
gives 'ldconfig;systemctl daemon-reload;systemctl try-restart qos-agent.service;' '' postinst configure 0.0.9
gives '' '' prerm upgrade 9.0
gives '' '' postrm upgrade 9.0
gives 'systemctl disable --now qos-agent.service;' '' prerm remove
gives 'ldconfig;systemctl daemon-reload;' '' postrm remove
gives 'ldconfig;' "$work/root" postinst configure 0.0.9
gives '' "$work/root" prerm remove
mkdir -p root/var/lib/private/qos-agent/captures root/var/lib/private/other
ln -s private/qos-agent root/var/lib/qos-agent
gives 'ldconfig;' "$work/root" postrm remove
[ -d root/var/lib/qos-agent/captures ] || fail "what the service has written goes with its removal"
gives '' "$work/root" postrm purge
[ "$(cd root && find . ! -type l | sort | tail -n 1)" = ./var/lib/private/other ] || fail "purged: $(find root)"
[ ! -L root/var/lib/qos-agent ] || fail "a link is left behind"
printf 'exit 1\n' >>tools/systemctl
gives 'systemctl disable --now qos-agent.service;' '' prerm remove
gives 'ldconfig;systemctl daemon-reload;systemctl try-restart qos-agent.service;' '' postinst configure 0.0.9
