#!/usr/bin/env bash
# The agent across simulated reboots under Wine: each scenario is a real package folder (the agent as
# "setup.exe", the example setup program as the product's setup), started as the administration server
# starts it, then the machine is "rebooted" (wineserver killed, booted again with wineboot, which starts
# the auto-start services) and what the agent's service does afterwards is checked.
#   tests/qzri/reboot_e2e.sh AGENT_EXE EXAMPLE_SETUP_EXE [SCENARIO...]
# A reboot kills every process of the Wine prefix, so the scenarios run one after another in a prefix
# and a wineserver of their own, never beside the other Wine tests.
set -uo pipefail

agent_exe=$1 example_setup=$2
shift 2
root=$(cd "$(dirname "$0")/../.." && pwd)
wine_dir=${QZ_WINE_DIR:-/usr/lib/wine}
build=$(cd "$(dirname "$agent_exe")/../.." && pwd)
work=$build/reboot-e2e
export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=
rm -rf "$work/pkgs" && mkdir -p "$work/pkgs"

failures=0
fail() { printf 'FAILED %s: %s\n' "$scenario" "$*"; failures=$((failures + 1)); }
win_path() { local p=$1; printf 'Z:%s' "${p//\//\\}"; }
wine() { "$wine_dir/wine64" "$@"; }

# Power off (every process ends, the registry stays) and boot: auto-start services start again.
reboot() {
  "$wine_dir/wineserver" -k
  "$wine_dir/wineserver" -w
  "$wine_dir/wineserver" -p
  wine wineboot >/dev/null 2>&1
}

service_exists() { wine reg query "HKLM\\System\\CurrentControlSet\\Services\\$1" >/dev/null 2>&1; }
service_gone() { ! service_exists "$1"; }
# No process of the package runs any more (the trace is complete).
package_idle() { ! pgrep -f -- "$(sed 's/[][\\.*^$]/\\&/g' <<<"$(win_path "$pkg")")" >/dev/null; }

# Waits up to $1 seconds for the command to succeed.
wait_until() {
  local limit=$1 n=0
  shift
  until "$@"; do
    n=$((n + 1))
    [ "$n" -ge $((limit * 5)) ] && return 1
    sleep 0.2
  done
}

# All generations of the trace of a package's runs, oldest first.
traces() {
  local f
  for f in "$pkg/trace/\$qzriwrp"*.bak* "$pkg/trace/\$qzriwrp.txt" "$pkg/trace/\$qzriwrp_concurrent.txt"; do
    [ -f "$f" ] && tr -d '\r' <"$f"
  done
  return 0
}
traced() { traces | grep -F -- "$1" >/dev/null || fail "not traced: $1"; }
ini_value() { tr -d '\r' <"$1" 2>/dev/null | sed -n "s/^$2=//p" | head -n 1; }
# The service name the agent traced when it registered its autostart.
service_name() {
  traces | sed -n "s/.*qzriwrap service name is '\([^']*\)'.*/\1/p" | tail -n 1
}

# A package folder: $1 scenario name, $2 package description, $3 examplesetup.ini.
make_package() {
  pkg=$work/pkgs/$1
  mkdir -p "$pkg/trace"
  cp "$agent_exe" "$pkg/setup.exe"
  cp "$example_setup" "$pkg/product_setup.exe"
  printf '%b' "$2" >"$pkg/package.qpd"
  printf '%b' "$3" >"$pkg/examplesetup.ini"
  export QZCSAK_SYSTEMP_PATH QZ_LOCAL_SS_PATH
  QZCSAK_SYSTEMP_PATH=$(win_path "$pkg/trace")
  QZ_LOCAL_SS_PATH=$(win_path "$pkg/local_ss.xml")
  # The service started at boot takes the system environment, not ours.
  local var
  for var in QZCSAK_SYSTEMP_PATH QZ_LOCAL_SS_PATH; do
    wine reg add "HKLM\\System\\CurrentControlSet\\Control\\Session Manager\\Environment" /v "$var" \
      /d "${!var}" /f >/dev/null
  done
}

# Starts the agent of the package as the administration server does; its low 8 exit bits in $rc.
start_agent() {
  wine "$(win_path "$pkg/setup.exe")" "$@"
  rc=$?
}

restart_qpd='[Setup]\r\nExecutable=product_setup.exe\r\nTimeoutSec=%s\r\nMaxRestarts=%s\r\n[SetupRestartResult]\r\nFile=restart.ini\r\nSection=Restart\r\nValue=Class\r\n'
restart_setup='[Result]\r\nFile=restart.ini\r\nSection=Restart\r\nValue=Class\r\nCodes=%s\r\nSleepSec=%s\r\n'

# (a) The setup asks for a reboot and a rerun once: the service relaunches it silently with the next
# counter after the reboot, the final result is reported and the service is gone.
scenario_rerun() {
  make_package rerun "$(printf "$restart_qpd" 600 5)" "$(printf "$restart_setup" 32,0 0)"
  start_agent TASK_ID=
  [ "$rc" -eq 0 ] || fail "first start ended with $rc"
  traced "RegisterAutostart(1)..."
  traced "RegisterAutostart(0)..."
  [ "$(ini_value "$pkg/\$qzriwrp.ini" action)" = 0 ] || fail "action after the first start"
  [ "$(ini_value "$pkg/\$qzriwrp.ini" start_counter)" = 1 ] || fail "counter after the first start"
  local name
  name=$(service_name)
  service_exists "$name" || fail "no service '$name' before the reboot"
  reboot
  wait_until 60 test -f "$pkg/setup.log" || fail "no result after the reboot"
  wait_until 60 package_idle || fail "the package's processes still run"
  wait_until 30 service_gone "$name" ||
    fail "service '$name' still there"
  traced "Command line: $(win_path "$pkg/setup.exe") TASK_ID= MASTER_SERVICE_ID=${name#QZ Deployment Wrapper} /s QZRI_START_CNT=1"
  [ "$(ini_value "$pkg/setup.log" ResultCode)" = 0 ] || fail "setup.log: $(cat "$pkg/setup.log")"
  [ "$(cat "$pkg/setup-runs.txt")" = 2 ] || fail "the product setup ran $(cat "$pkg/setup-runs.txt") times"
}

# (b) Reboot, then check only: after the reboot nothing runs again and the result is read.
scenario_check() {
  make_package check "$(printf "$restart_qpd" 600 5)" "$(printf "$restart_setup" 33 0)"
  start_agent /s
  [ "$rc" -eq 0 ] || fail "first start ended with $rc"
  traced "RegisterAutostart(2)..."
  [ "$(ini_value "$pkg/\$qzriwrp.ini" action)" = 2 ] || fail "action after the first start"
  local name
  name=$(service_name)
  rm -f "$pkg/setup.log"
  reboot
  wait_until 60 test -f "$pkg/setup.log" || fail "no result after the reboot"
  wait_until 60 package_idle || fail "the package's processes still run"
  traced "data.m_eAct = QZRI_ACTION_CHECK_RESULT, so: bCheckProcessResult = false."
  traced "RemoveService: Report service stopped."
  wait_until 30 service_gone "$name" ||
    fail "service '$name' still there"
  [ "$(cat "$pkg/setup-runs.txt")" = 1 ] || fail "the product setup ran again"
  [ "$(ini_value "$pkg/setup.log" ResultCode)" = 0 ] || fail "setup.log: $(cat "$pkg/setup.log")"
}

# (c) Power cut while the setup runs: the restarted agent says "Unexpected reboot.", reports it and
# removes its service.
scenario_power_cut() {
  make_package power_cut "$(printf "$restart_qpd" 600 5)" "$(printf "$restart_setup" 0 600)"
  wine "$(win_path "$pkg/setup.exe")" TASK_ID= &
  wait_until 30 test -f "$pkg/setup-runs.txt" || fail "the setup did not start"
  local name
  name=$(service_name)
  [ "$(ini_value "$pkg/\$qzriwrp.ini" action)" = 1 ] || fail "action while the setup runs"
  reboot
  wait %1 2>/dev/null
  wait_until 60 test -f "$pkg/setup.log" || fail "no result after the reboot"
  wait_until 60 package_idle || fail "the package's processes still run"
  traced "Restarted while the setup was running: the computer was rebooted meanwhile."
  traced "QZRI_MSG_DATA_UNEXPECTED_REBOOT \"Unexpected reboot.\""
  [ "$(cat "$pkg/ovxsetup.rep")" = "Unexpected reboot." ] ||
    fail "description: $(cat "$pkg/ovxsetup.rep")"
  wait_until 30 service_gone "$name" ||
    fail "service '$name' still there"
}

# (d) A setup that hangs: the time-out ends the wait and the description names the hung process.
scenario_timeout() {
  make_package timeout "$(printf "$restart_qpd" 2 5)" "$(printf "$restart_setup" 0 30)"
  start_agent /s
  [ "$rc" -eq $((0x200000C6 & 255)) ] || fail "ended with $rc, not QZRI_RSLT_TIMEOUT"
  grep -q "Timeout elapsed. Still running: product_setup.exe (pid " "$pkg/ovxsetup.rep" ||
    fail "description: $(cat "$pkg/ovxsetup.rep")"
}

# (e) The product's setup is missing: reported, and no service is left behind.
scenario_missing_setup() {
  make_package missing "$(printf "$restart_qpd" 600 5)" ""
  rm "$pkg/product_setup.exe"
  start_agent /s
  [ "$rc" -eq $((0x200000C9 & 255)) ] || fail "ended with $rc, not QZRI_RSLT_SETUP_NOT_FOUND"
  traced "File '$(win_path "$pkg/product_setup.exe")' does not exist."
  traced "RemoveService: Trying to remove service"
}

# (f) Services that earlier runs left: ghosts (executable gone) are deleted, the master service stays.
scenario_ghosts() {
  make_package ghosts "$(printf "$restart_qpd" 600 5)" "$(printf "$restart_setup" 0 0)"
  wine sc create "QZ Deployment Wrapperghost1" binPath= "C:\\gone\\qzriwrap.exe QZRI\$ID=ghost1" >/dev/null
  wine sc create "QZ Package Wrapper old" binPath= "C:\\gone\\old.exe" >/dev/null
  wine sc create "QZ Deployment Wrappermaster1" binPath= "C:\\gone\\qzriwrap.exe QZRI\$ID=master1" >/dev/null
  start_agent /s MASTER_SERVICE_ID=master1
  ! service_exists "QZ Deployment Wrapperghost1" || fail "ghost of this agent kept"
  ! service_exists "QZ Package Wrapper old" || fail "ghost of an older agent kept"
  # The master service is this task's own: the clean-up keeps it, the end of the task removes it.
  local cleanup
  cleanup=$(traces | sed -n '/CleanupGhostRIServices(master1/,/Check groups-uninstallation mode/p')
  grep -qF "Found RI service: QZ Deployment Wrappermaster1" <<<"$cleanup" || fail "master service not seen"
  [ "$(grep -c "service is going to be deleted" <<<"$cleanup")" = 2 ] || fail "deletions: $cleanup"
  traced "RemoveService: Trying to remove service QZ Deployment Wrappermaster1."
}

# (g) A setup that asks for a reboot and a rerun every time trips the loop guard.
scenario_loop() {
  make_package loop "$(printf "$restart_qpd" 600 1)" "$(printf "$restart_setup" 32 0)"
  start_agent TASK_ID=
  local name
  name=$(service_name)
  reboot
  wait_until 60 test -f "$pkg/setup.log" || fail "no result after the reboot"
  wait_until 60 package_idle || fail "the package's processes still run"
  traced "Stopped after 1 restarts: the setup asked for a reboot and a rerun each time."
  [ "$(ini_value "$pkg/setup.log" ResultCode)" = $((0x200000CA)) ] || fail "setup.log: $(cat "$pkg/setup.log")"
  wait_until 30 service_gone "$name" ||
    fail "service '$name' still there"
}

# A prefix of its own, from the template the other Wine tests use.
mkdir -p "$work/warm"
cp "$example_setup" "$work/warm/setup.exe"
"$root/scripts/wine-run.sh" "$work/warm/setup.exe" >/dev/null || { echo "no Wine prefix"; exit 1; }
"$wine_dir/wineserver" -k 2>/dev/null
"$wine_dir/wineserver" -w
"$wine_dir/wineserver" -p
trap '"$wine_dir/wineserver" -k 2>/dev/null' EXIT

scenarios=("$@")
[ ${#scenarios[@]} -gt 0 ] || scenarios=(rerun check power_cut timeout missing_setup ghosts loop)
for scenario in "${scenarios[@]}"; do
  start=$(date +%s)
  before=$failures
  "scenario_$scenario"
  [ "$failures" -eq "$before" ] && result=ok || result=FAILED
  printf 'reboot-e2e: %-14s %s (%d s)\n' "$scenario" "$result" $(($(date +%s) - start))
  [ "$result" = ok ] || { echo "--- trace of $scenario:"; traces | tail -n 60; }
done
exit $((failures > 0))
