#!/usr/bin/env bash
# Succeeds when 32-bit Wine is usable, installing wine32:i386 if apt can do so without removing
# anything (forcing it makes apt remove wine64). Otherwise prints why and fails. A failed probe is
# remembered for a day in the cache so that every test run does not repeat the slow apt work.
set -uo pipefail

cache_dir=${QZ_CACHE_DIR:-$HOME/.cache/qzriwrap}
stamp=$cache_dir/wine32-probe
[ -x /usr/lib/wine/wine ] && exit 0

if [ -f "$stamp" ] && [ -n "$(find "$stamp" -mmin -1440 2>/dev/null)" ]; then
  cat "$stamp"
  exit 1
fi

fail() {
  mkdir -p "$cache_dir"
  printf '%s\n' "$*" | tee "$stamp"
  exit 1
}

[ "$(id -u)" -eq 0 ] || fail "32-bit Wine is not installed and installing it needs root"
added=0
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  dpkg --add-architecture i386
  added=1
fi
undo() {
  # A half-synced i386 index would make every later 'apt-get update' fail: take the architecture out again.
  if [ "$added" -eq 1 ] && ! dpkg -l | awk '{print $2}' | grep -q ':i386$'; then
    dpkg --remove-architecture i386
    apt-get update -qq >/dev/null 2>&1
  fi
}
export DEBIAN_FRONTEND=noninteractive
if ! apt-get update -qq >/tmp/qz-wine32-probe.log 2>&1; then
  undo
  fail "apt-get update with the i386 architecture failed: $(tail -n 2 /tmp/qz-wine32-probe.log | tr '\n' ' ')"
fi
if ! apt-get install -s --no-remove -y wine32:i386 >/tmp/qz-wine32-probe.log 2>&1; then
  undo
  fail "wine32:i386 cannot be installed without breaking wine64: $(grep -m1 -E 'E:|Depends' /tmp/qz-wine32-probe.log)"
fi
if ! apt-get install --no-remove -y -qq wine32:i386 >>/tmp/qz-wine32-probe.log 2>&1 || [ ! -x /usr/lib/wine/wine ]; then
  undo
  fail "installing wine32:i386 failed: $(tail -n 1 /tmp/qz-wine32-probe.log)"
fi
rm -f "$stamp"
exit 0
