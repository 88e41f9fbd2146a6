#!/usr/bin/env bash
# Shows that the project's own files install all that it needs: makes a bare Debian 12 (apt, make, git and
# ca-certificates, nothing else) in a folder, clones the current commit into it and runs the commands of the README there,
# or the command given. Needs root and the mirror of this machine's own apt. The mounts are those of a namespace, so that
# the kernel removes them however this ends.
# usage: scripts/bare_machine.sh [COMMAND [ARGUMENT...]]
set -euo pipefail
[ $# -gt 0 ] || set -- sh -c 'make run && make test'

[ "$(id -u)" -eq 0 ] || { echo "bare machine: needs root" >&2; exit 1; }
scripts/setup.sh bare
[ -z "$(git status --porcelain)" ] || echo "bare machine: what is not committed is left out" >&2

sources() {
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' "Architecture: $(dpkg --print-architecture)" | grep ' bookworm' | sort -u
}
[ -n "$(sources)" ] || apt-get update >/dev/null
[ -n "$(sources)" ] || { echo "bare machine: apt on this machine has no sources of Debian 12" >&2; exit 1; }

root=$(mktemp -d)
trap 'rm -rf --one-file-system "$root"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP
log=$(mktemp -p "$root")
sources | mmdebstrap --variant=apt --include=make,git,ca-certificates --components=main bookworm "$root/debian" - \
  >"$log" 2>&1 || { tail -n 20 "$log" >&2; exit 1; }
cp /etc/resolv.conf /etc/hosts "$root/debian/etc/"
git clone --quiet --no-hardlinks . "$root/debian/root/project"
echo "bare machine: $(git -C "$root/debian/root/project" log -1 --format='%h, %s') on $(
  chroot "$root/debian" dpkg-query -f '.\n' -W | wc -l) packages"

# As process 1 of its own processes: what it leaves running ends with it.
unshare --mount --pid --fork --kill-child bash -c '
  mount -t proc proc "$0/proc" && mount --rbind /dev "$0/dev" && mount --rbind /sys "$0/sys" &&
  exec chroot "$0" env -i -C /root/project HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    TERM="${TERM:-dumb}" CI="${CI:-}" "$@"' "$root/debian" "$@"
