# Functions that create fresh minimal roots of Debian releases, for scripts that source this file.
# They need root and debootstrap, and cache the roots in $XDG_CACHE_HOME/zephyl-tray.

cache="${XDG_CACHE_HOME:-$HOME/.cache}/zephyl-tray"

# The exit status of a check that is impossible on this system.
readonly skipped=77

# skip TEXT...: prints the reason and exits with that status.
skip() {
  echo "SKIPPED: $*"
  exit "$skipped"
}

# require_roots TEXT: skips the check unless roots can be created. TEXT says which check is skipped.
require_roots() {
  ((EUID == 0)) || skip "$1: this needs root"
  command -v debootstrap >/dev/null || skip "$1: debootstrap is not installed"
  mkdir -p "$cache"
}

# make_root RELEASE ROOT: creates a root with debootstrap, or from the cache. ROOT must be an empty
# directory.
make_root() {
  local release="$1" root="$2" base="$cache/$1.tar" fresh
  if [[ ! -f "$base" ]]; then
    fresh="$(mktemp -d "$cache/$release.XXXXXX")"
    if ! debootstrap --variant=minbase "$release" "$fresh" >"$fresh.log" 2>&1; then
      tail -n 5 "$fresh.log"
      rm -rf --one-file-system "$fresh"
      skip "Debian $release: debootstrap failed (see $fresh.log)"
    fi
    tar -C "$fresh" -cf "$base.new" .
    mv "$base.new" "$base"
    rm -rf --one-file-system "$fresh" "$fresh.log"
  fi
  tar -C "$root" -xf "$base"
  # mktemp grants access to root only, but tests run programs as another user.
  chmod 0755 "$root"
}

# enter_root ROOT [NAME=VALUE...] COMMAND...: runs a command in /root/zephyl-tray of the root. The
# command has a separate mount and process namespace. The kernel removes the namespace with all
# processes and mounts, even if this script is killed. If $shared is set, it is mounted as /shared. If
# $cgroups is set, the control groups are mounted, which systemd needs.
enter_root() {
  cp -L /etc/resolv.conf "$1/etc/resolv.conf"
  SHARED="${shared:-}" CGROUPS="${cgroups:-}" unshare --mount --pid --fork --kill-child bash -euo pipefail -s -- "$@" <<'INSIDE'
root="$1"
shift
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
mount --rbind /dev "$root/dev"
mount --make-rslave "$root/dev"
mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
if [[ -n "$CGROUPS" ]]; then mount --rbind /sys/fs/cgroup "$root/sys/fs/cgroup"; fi
if [[ -n "$SHARED" ]]; then
  mkdir -p "$root/shared"
  mount --bind "$SHARED" "$root/shared"
fi
exec chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 CI=true \
  ZEPHYL_WERROR="${ZEPHYL_WERROR:-}" TERM=dumb \
  /bin/sh -c 'mkdir -p /root/zephyl-tray && cd /root/zephyl-tray && exec /usr/bin/env "$@" </dev/null' sh "$@"
INSIDE
}
