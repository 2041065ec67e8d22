#!/usr/bin/env bash
# The reboot agent's dialogues on a virtual screen: qzrbtagt.exe (64-bit build) runs under wine64 in the
# build tree's shared prefix, xdotool clicks and presses keys, ImageMagick's import keeps a picture of
# each dialogue in the artifacts folder. Restarts are dry runs (QZRBTAGT_DRY_RUN): nothing restarts.
#   gui_xvfb_test.sh <qzrbtagt.exe> <artifacts folder>
set -uo pipefail
[ $# -eq 2 ] || { echo "usage: $0 QZRBTAGT_EXE ARTIFACTS" >&2; exit 2; }
exe=$(realpath "$1")
artifacts=$2
here=$(cd "$(dirname "$0")" && pwd)
wine_run=$here/../../scripts/wine-run.sh

if [ -z "${QZ_IN_XVFB:-}" ]; then
  for tool in xvfb-run xdotool import; do
    command -v "$tool" >/dev/null || { echo "missing $tool: run scripts/install-packages.sh" >&2; exit 1; }
  done
  # The prefix's Wine server must start under the virtual display: wait until an earlier one is gone.
  build=$(dirname "$exe")
  while [ "$build" != / ] && [ ! -f "$build/CMakeCache.txt" ]; do build=$(dirname "$build"); done
  export WINEPREFIX=${WINEPREFIX:-$build/wineprefix}
  /usr/lib/wine/wineserver -w 2>/dev/null
  QZ_IN_XVFB=1 exec xvfb-run -a -s "-screen 0 1024x768x24" bash "$0" "$@"
fi

rm -rf "$artifacts" && mkdir -p "$artifacts"
work=$(mktemp -d "${TMPDIR:-/tmp}/qz-gui.XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
winpath() { printf 'Z:%s' "${1//\//\\}"; }

# A package folder with the program, a description and, optionally, the reboot agent's settings.
package() {
  local dir=$work/$1
  mkdir -p "$dir"
  cp "$exe" "$dir/qzrbtagt.exe"
  printf '[Product]\r\nName=p\r\nDisplayName=Example Product 1.0\r\n[Setup]\r\nAskUser=1\r\n%s' "$2" >"$dir/package.qpd"
  [ -z "${3:-}" ] || printf '%s' "$3" >"$dir/qzrbtagt.ini"
  printf '%s\n' "$dir"
}

# Starts the program, waits for its window, keeps a picture, then runs the action on the window id.
# Sets rc to the exit code.
run_dialog() {
  local dir=$1 title=$2 shot=$3 action=$4
  shift 4
  "$wine_run" "$dir/qzrbtagt.exe" "$@" &
  local pid=$! wid=""
  wid=$(timeout 20 xdotool search --sync --onlyvisible --name "^$title\$" 2>/dev/null | head -1)
  if [ -n "$wid" ]; then
    sleep 0.3
    [ -z "$shot" ] || import -window root "$artifacts/$shot"
    [ "$action" = none ] || eval "$action"
  else
    fail "no window '$title'"
  fi
  wait "$pid"
  rc=$?
}
expect_rc() { [ "$rc" -eq "$2" ] && echo "ok: $1 ($rc)" || fail "$1: exit code $rc, want $2"; }
ini_value() { tr -d '\r' <"$1" | sed -n "s/^$2=//p" | tail -1; }

# Consent: the buttons clicked with the mouse (positions inside the dialogue), then the keyboard.
dir=$(package consent "")
run_dialog "$dir" Installation consent.png 'xdotool mousemove --window "$wid" 288 155 click 1' PreInstall=1 SID=1
expect_rc "consent: click on Install now" 6
run_dialog "$dir" Installation "" 'xdotool mousemove --window "$wid" 425 155 click 1' PreInstall=1 SID=1
expect_rc "consent: click on Later" 4
run_dialog "$dir" Installation "" 'xdotool key --window "$wid" Tab space' PreInstall=1 SID=1
expect_rc "consent: Tab and space on Later" 4
run_dialog "$dir" Installation "" 'xdotool key --window "$wid" Return' PreInstall=1 SID=1
expect_rc "consent: Enter on the default button" 6

# The countdown applies the package's default answer when nobody answers.
dir=$(package countdown $'AskUserTimeoutSec=2\r\nAskUserDefaultAnswer=1\r\n')
run_dialog "$dir" Installation consent-countdown.png none PreInstall=1 SID=1
expect_rc "consent: the countdown applies Install now" 6

# The reboot agent: "Restart later" once (the limit), the question comes back after a second with the
# countdown and no deferral left, and the restart runs the saved command line afterwards.
dir=$(package reboot "" $'[Action]\r\nAskReboot=1\r\nMaxDeferrals=1\r\nRemindSec=1\r\nCountdownSec=2\r\n')
export QZRBTAGT_DRY_RUN
QZRBTAGT_DRY_RUN=$(winpath "$dir/restart.txt")
hex=$(printf '"C:\\pkg\\setup.exe" /s' | iconv -t UTF-16LE | od -An -tx1 | tr -d ' \n' | tr a-f A-F)
run_dialog "$dir" "Restart required" reboot.png 'xdotool key --window "$wid" Escape' "RunAfterRestart=\$HEX_$hex"
expect_rc "reboot: later once, then restarted when no deferral is left" 6
[ "$(ini_value "$dir/qzrbtagt.ini" Deferrals)" = 1 ] && echo "ok: one deferral counted" || fail "deferrals not counted"
grep -q '^run after restart: "C:\\pkg\\setup.exe" /s$' "$dir/restart.txt" && echo "ok: the saved command line" ||
  fail "restart.txt: $(cat "$dir/restart.txt" 2>&1)"
[ "$(ini_value "$dir/askusr.log" ResultCode)" = 6 ] && echo "ok: askusr.log holds Restart now" || fail "askusr.log"

# RebootImmediately restarts without a window; AskReboot=0 neither asks nor restarts.
dir=$(package immediate "" $'[Action]\r\nRebootImmediately=1\r\n')
QZRBTAGT_DRY_RUN=$(winpath "$dir/restart.txt")
"$wine_run" "$dir/qzrbtagt.exe"
rc=$?
expect_rc "reboot: RebootImmediately" 6
grep -qx restart "$dir/restart.txt" && echo "ok: restarted" || fail "no restart"
dir=$(package noask "" $'[Action]\r\nAskReboot=0\r\n')
QZRBTAGT_DRY_RUN=$(winpath "$dir/restart.txt")
"$wine_run" "$dir/qzrbtagt.exe"
rc=$?
expect_rc "reboot: AskReboot=0" 7
[ ! -e "$dir/restart.txt" ] && echo "ok: not restarted" || fail "restarted"

# A command line it does not understand.
"$wine_run" "$dir/qzrbtagt.exe" SID=x
rc=$?
expect_rc "bad command line" 1

ls "$artifacts"
[ "$failures" -eq 0 ]
