# Fresh minimal roots of Debian releases. Sourced, not run. Needs root and debootstrap.
# What is slow to make is kept in $XDG_CACHE_HOME/zephyl-tray for the next run.

cache="${XDG_CACHE_HOME:-$HOME/.cache}/zephyl-tray"

# The exit status of a check that could not be made.
readonly skipped=77

# skip TEXT...: ends the script because a check cannot be made.
skip() {
  echo "SKIPPED: $*"
  exit "$skipped"
}

# Ends the script unless roots can be made here. $1 says what is not checked.
require_roots() {
  ((EUID == 0)) || skip "$1: this needs root"
  command -v debootstrap >/dev/null || skip "$1: debootstrap is not installed"
  mkdir -p "$cache"
}

# make_root RELEASE ROOT: a root as debootstrap makes it. ROOT is an empty directory.
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
  # mktemp made it, and the archive, for root alone; tests run programs of another user.
  chmod 0755 "$root"
}

# enter_root ROOT [NAME=VALUE...] COMMAND...: runs a command in the sources that are in the root.
# Everything happens in a mount and process namespace of its own, which the kernel takes down with all
# processes and mounts, whatever becomes of this script. The directory $shared, if it is set, is
# /shared in the root. With $cgroups set it sees the control groups, which a systemd needs.
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
