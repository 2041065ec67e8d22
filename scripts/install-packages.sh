#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need, once per machine.
# Also makes sure that apt knows the source packages of the distribution (deb-src), which the
# Windows dependency build unpacks. The deb-src entries are derived from the apt sources that are
# already configured on the machine, so no package host is written down here.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build ccache pkg-config dpkg-dev file
  clang libclang-rt-14-dev
  libcurl4-openssl-dev libarchive-dev libssl-dev zlib1g-dev libjsoncpp-dev libpugixml-dev libinih-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix libz-mingw-w64-dev
  wine64 msitools wixl osslsigncode openssl squid nginx-light bc
  xvfb xauth xdotool imagemagick
)

log() { printf 'install-packages: %s\n' "$*"; }

need_root() {
  if [ "$(id -u)" -ne 0 ]; then
    log "run as root (apt-get install is needed for: $*)"
    exit 1
  fi
}

missing_packages() {
  local p
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || printf '%s\n' "$p"
  done
}

# Adds a deb-src twin for every deb822 and one-line apt source that has none.
ensure_deb_src() {
  local out=/etc/apt/sources.list.d/qz-deb-src.sources
  if grep -rqs '^Types:.*deb-src' /etc/apt/sources.list.d/*.sources 2>/dev/null ||
     grep -qs '^deb-src ' /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null; then
    return 1
  fi
  need_root deb-src
  local f tmp
  tmp=$(mktemp)
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -e "$f" ] || continue
    # Keep only stanzas of the distribution's own archive (Types: deb with a Signed-By keyring of debian).
    awk 'BEGIN{RS=""; ORS="\n\n"} /Types:[ \t]*deb/ && /debian-archive-keyring/ {sub(/Types:[ \t]*deb[^\n]*/, "Types: deb-src"); print}' "$f" >>"$tmp"
  done
  if [ -f /etc/apt/sources.list ]; then
    grep -E '^deb ' /etc/apt/sources.list | grep -v 'deb-src' | sed 's/^deb /deb-src /' >/etc/apt/sources.list.d/qz-deb-src.list || true
  fi
  if [ -s "$tmp" ]; then mv "$tmp" "$out"; chmod 644 "$out"; else rm -f "$tmp"; fi
  return 0
}

main() {
  local changed=0
  ensure_deb_src && changed=1
  mapfile -t todo < <(missing_packages)
  if [ "${#todo[@]}" -gt 0 ] || [ "$changed" -eq 1 ]; then
    need_root "${todo[*]:-deb-src}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
  fi
  if [ "${#todo[@]}" -gt 0 ]; then
    log "installing: ${todo[*]}"
    apt-get install -y -qq --no-install-recommends "${todo[@]}" >/dev/null
  fi
}

main "$@"
