#!/usr/bin/env bash
# Runs the agent's main job on the bundled example package (examples/package) and shows what happened:
# the exit code, the trace, and the files it left. Four starts show four of its decisions:
#   1. a fresh start: the package is read, its setup runs and its result file says it succeeded;
#   2. a restart by the agent's service after the machine rebooted while the setup ran;
#   3. a start on a host that is managed by another administration server;
#   4. a silent start whose setup fails: the result in setup.log, explained by "qzpkg result";
#   5. (Wine) an installation whose setup asks for a reboot and a rerun: the agent's service, a
#      simulated reboot, the relaunch, and the final result;
#   6. (Wine) the example Windows Installer package (examples/msi) installed in the agent's process
#      with a property and a password, then removed again;
#   6b. (Wine) an upgrade: version 1.0.0 of the example product is on the computer, the package installs
#      2.0.0 and names 1.0.0 in [Uninstall]: the agent removes the old version first;
#   7. a package whose setup is downloaded from a local server (a zip with its SHA-256), unpacked and run;
#   8. a silent task whose setup needs a reboot: a second instance of the agent hands the result to a
#      test administration server over TLS and waits for its decision, which accepts the reboot.
#   scripts/demo.sh            the Windows build under wine64 (default)
#   scripts/demo.sh --native   the Linux build
# On a fresh Debian machine (as root) it installs and builds what it needs first.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

mode=wine
case "${1:-}" in
  "") ;;
  --native) mode=native ;;
  *) echo "usage: scripts/demo.sh [--native]" >&2; exit 2 ;;
esac

export QZ_CACHE_DIR=${QZ_CACHE_DIR:-$HOME/.cache/qzriwrap}
export CCACHE_DIR=${CCACHE_DIR:-$QZ_CACHE_DIR/ccache}

say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }

say "set-up"
scripts/install-packages.sh
if [ "$mode" = wine ]; then
  scripts/build-win-deps.sh x86_64-w64-mingw32 >/dev/null
  preset=win64 exe=qzriwrap.exe tool=build/win64/tools/qzpkg/qzpkg.exe setup=qz_example_setup.exe
else
  preset=linux exe=qzriwrap tool=build/linux/tools/qzpkg/qzpkg setup=qz_example_setup
fi
mkdir -p build
cmake --preset "$preset" >build/demo-configure.log 2>&1 || { cat build/demo-configure.log; exit 1; }
targets=(qzriwrap qzpkg qz_example_setup)
[ "$mode" = wine ] && targets+=(qz_example_msi)
cmake --build --preset "$preset" --target "${targets[@]}" | tail -n 1

work=$root/build/demo-$mode
rm -rf "$work"
mkdir -p "$work/trace" "$work/ss"

# The agent sees Windows paths under Wine: the Linux root is drive Z:.
os_path() { if [ "$mode" = wine ]; then printf 'Z:%s' "${1//\//\\}"; else printf '%s' "$1"; fi; }
export QZCSAK_SYSTEMP_PATH=$(os_path "$work/trace")
export QZ_LOCAL_SS_PATH=$(os_path "$work/ss/local_ss.xml")
export WINEPREFIX=$root/build/win64/wineprefix

run_tool() {
  if [ "$mode" = wine ]; then scripts/wine-run.sh "$tool" "$@"; else "$tool" "$@"; fi
}

# Copies the example package with the agent into a folder of its own and starts the agent there.
run_agent() {
  local name=$1 pkg=$work/$1
  shift
  mkdir -p "$pkg"
  cp examples/package/* "$pkg/"
  cp "build/$preset/qzri/riwrap/$exe" "$pkg/"
  # The package's setup program: the example one, which writes the result file examplesetup.ini names.
  cp "build/$preset/examples/$setup" "$pkg/setup.exe"
  [ -n "${prepare:-}" ] && "$prepare" "$pkg"
  set +e
  if [ "$mode" = wine ]; then scripts/wine-run.sh "$pkg/$exe" "$@"; else "$pkg/$exe" "$@"; fi
  rc=$?
  set -e
  echo "command line: $exe $*"
  echo "exit code:    $rc   (the low 8 bits a shell sees; the whole code is on the trace's \"Exit code:\" line; docs/agent.md, \"Exit codes\")"
  echo "trace ($work/trace/\$qzriwrp.txt), timestamps cut:"
  sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /' "$work/trace/\$qzriwrp.txt"
  echo "files in the package folder:"
  (cd "$pkg" && ls -1 | sed 's/^/  /')
}

# A service restart finds the run parameters the agent stored before the setup started.
saved_running_setup() {
  printf '[Setup]\r\naction=1\r\nstart_counter=0\r\ncmdline=\r\n' >"$1/\$qzriwrp.ini"
  echo "run parameters stored before the reboot (qzpkg state):"
  run_tool state "$(os_path "$1")" | sed 's/^/  /'
}

# The host's management agent is bound to another server than the one the package names.
other_server() {
  sed -i 's/^MgdByOtherSrv=0/MgdByOtherSrv=1/' "$1/package.qpd"
  cat >"$work/ss/local_ss.xml" <<'XML'
<?xml version="1.0" encoding="utf-8"?>
<settings_storage format="1">
  <product name="1103"><version name="1.0.0.0"><section name="global">
    <value name="QZNAG_SRVID" type="STRING_T" value="srv-demo-B"/>
  </section></version></product>
</settings_storage>
XML
  echo "local settings storage (qzpkg ss dump):"
  run_tool ss dump "$(os_path "$work/ss/local_ss.xml")" | sed 's/^/  /'
}

# The example setup reports 1603 in its result file, which the package's list calls a fatal error.
setup_fails() {
  printf '[Result]\r\nFile=result.ini\r\nCode=1603\r\n' >"$1/examplesetup.ini"
}

say "1. fresh start of the example package"
prepare="" run_agent fresh TASK_ID=demo-task-1 RI_ID=ri-1

say "2. restart by the agent's service after a reboot during the setup"
prepare=saved_running_setup run_agent restart QZRI\$ID=svc-demo TASK_ID=demo-task-1

say "3. host managed by another administration server"
prepare=other_server run_agent managed TASK_ID=demo-task-1

say "4. a silent start whose setup fails: its result file, the package's code list, setup.log (qzpkg result)"
prepare=setup_fails run_agent setup-fails /s
run_tool result "$(os_path "$work/setup-fails")" | sed 's/^/  /'

# An installation across a reboot (Wine only: it needs the service control manager). The package's
# "setup.exe" is the agent itself, which the agent's service relaunches after the reboot; the product's
# setup asks for a reboot and a rerun the first time and succeeds the second time.
reboot_install() {
  local pkg=$work/reboot wine_dir=/usr/lib/wine
  local reg_env='HKLM\System\CurrentControlSet\Control\Session Manager\Environment'
  mkdir -p "$pkg/trace"
  cp "build/$preset/qzri/riwrap/$exe" "$pkg/setup.exe"
  cp "build/$preset/examples/$setup" "$pkg/product_setup.exe"
  printf '[Product]\r\nName=Example Product\r\n[Setup]\r\nExecutable=product_setup.exe\r\n[SetupRestartResult]\r\nFile=restart.ini\r\nSection=Restart\r\nValue=Class\r\n' >"$pkg/package.qpd"
  printf '[Result]\r\nFile=restart.ini\r\nSection=Restart\r\nValue=Class\r\nCodes=32,0\r\n' >"$pkg/examplesetup.ini"
  # A machine of its own: the reboot ends every process of the Wine prefix.
  export WINEPREFIX=$work/prefix
  scripts/wine-run.sh "build/$preset/examples/$setup" >/dev/null 2>&1 || true
  # The service started at boot takes the system environment, where the trace folder is set.
  "$wine_dir/wine64" reg add "$reg_env" /v QZCSAK_SYSTEMP_PATH /d "$(os_path "$pkg/trace")" /f >/dev/null
  local trace_env=$QZCSAK_SYSTEMP_PATH
  export QZCSAK_SYSTEMP_PATH=$(os_path "$pkg/trace")
  echo "first start: setup.exe /s (the product's setup asks for a reboot and a rerun)"
  set +e; scripts/wine-run.sh "$pkg/setup.exe" /s; echo "exit code:    $?"; set -e
  tr -d '\r' <"$pkg/trace/\$qzriwrp.txt" | grep -E "Reboot needed|RegisterAutostart|service name is|finish after reboot" |
    sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /'
  echo "run parameters kept for the service (qzpkg state):"
  run_tool state "$(os_path "$pkg")" | sed 's/^/  /'
  echo "reboot: wineserver -k, then wineboot starts the auto-start services"
  "$wine_dir/wineserver" -k; "$wine_dir/wineserver" -w; "$wine_dir/wineserver" -p
  "$wine_dir/wine64" wineboot >/dev/null 2>&1
  local n=0
  until [ -f "$pkg/setup.log" ] || [ $n -ge 300 ]; do sleep 0.2; n=$((n + 1)); done
  sleep 1
  echo "after the reboot: the service relaunched the setup, which ran the product's setup again"
  cat "$pkg/trace/"*.bak* "$pkg/trace/"*.txt 2>/dev/null | tr -d '\r' |
    grep -E "Require to work as a service|Command line: .*QZRI_START_CNT|Result value|Service removed|Exit code" |
    sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /'
  echo "the result (qzpkg result):"
  run_tool result "$(os_path "$pkg")" | sed 's/^/  /'
  "$wine_dir/wineserver" -k
  export QZCSAK_SYSTEMP_PATH=$trace_env WINEPREFIX=$root/build/win64/wineprefix
}

# The example Windows Installer package: its properties from the package description, a password among
# them that must reach neither the trace nor the installer's log, the product removed afterwards.
msi_install() {
  local pkg=$work/msi wine_dir=/usr/lib/wine log
  mkdir -p "$pkg"
  cp "build/$preset/qzri/riwrap/$exe" "build/$preset/examples/example.msi" "$pkg/"
  printf '[Product]\r\nName=QZ Example Product\r\n[Setup]\r\nExecutable=example.msi\r\nMsiProperties=EXAMPLEDATA="shown by the demo" PROXYPASSWORD=demo-secret\r\n[SetupProcessResult_NeedReboot]\r\n3010=1\r\n1641=1\r\n' >"$pkg/package.qpd"
  echo "package description:"; sed 's/^/  /' "$pkg/package.qpd" | tr -d '\r'
  rm -f "$work/trace/\$qzriwrp.txt"
  set +e; scripts/wine-run.sh "$pkg/$exe" /s; echo "exit code:    $?"; set -e
  tr -d '\r' <"$work/trace/\$qzriwrp.txt" | grep -E "QZMsiSetupImpl::Launch\(|Windows Installer returned|Exit code" |
    sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /'
  echo "the product's registry value:"
  WINEDEBUG=-all "$wine_dir/wine64" reg query 'HKLM\Software\Wow6432Node\QZ Example Product' /v Data 2>/dev/null | tr -d '\r' | grep Data
  log=$(tr -d '\r' <"$work/trace/\$qzriwrp.txt" | sed -n "s/.*its log is '\(.*\)'\..*/\1/p" | tail -n 1)
  log=$("$wine_dir/wine64" winepath -u "$log" 2>/dev/null | tr -d '\r' || true)
  if [ -n "$log" ] && [ -f "$log" ]; then
    echo "the password in the installer's log ($log): $(grep -c demo-secret "$log" || true) time(s)"
  fi
  echo "the result (qzpkg result):"
  run_tool result "$(os_path "$pkg")" | sed 's/^/  /'
  WINEDEBUG=-all "$wine_dir/wine64" msiexec /x "$(os_path "$pkg/example.msi")" /qn && echo "the example product was removed again"
}

# An upgrade: the old example product is installed, the package's description names it in [Uninstall] of
# its companion and installs the new version; qzpkg shows first how the agent will remove the old one.
upgrade_install() {
  local pkg=$work/upgrade wine_dir=/usr/lib/wine
  mkdir -p "$pkg"
  cp "build/$preset/qzri/riwrap/$exe" "build/$preset/qzri/riwrap/qzuninst.ini" "build/$preset/examples/example-2.msi" "$pkg/"
  WINEDEBUG=-all "$wine_dir/wine64" msiexec /i "$(os_path "$root/build/$preset/examples/example.msi")" /qn
  echo "installed before the task: QZ Example Product $(WINEDEBUG=-all "$wine_dir/wine64" reg query 'HKLM\Software\Wow6432Node\QZ Example Product' /v Version 2>/dev/null | tr -d '\r' | awk '/Version/ {print $3}')"
  printf '[Product]\r\nName=QZ Example Product\r\n[Setup]\r\nExecutable=example-2.msi\r\n' >"$pkg/package.qpd"
  printf '[Uninstall]\r\nProduct=QZEXAMPLE\r\nVersion=1.0.0\r\n' >"$pkg/package.qud"
  echo "how the agent will remove it (qzpkg uninstall):"
  run_tool uninstall "$(os_path "$pkg")" | sed 's/^/  /'
  rm -f "$work/trace/\$qzriwrp.txt"
  set +e; scripts/wine-run.sh "$pkg/$exe" /s; echo "exit code:    $?"; set -e
  tr -d '\r' <"$work/trace/\$qzriwrp.txt" | grep -E "Uninstall product using|Unknown_Resolve|product code|Windows Installer returned|nExitCode|Exit code" |
    sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /' | head -n 20
  echo "installed after the task: QZ Example Product $(WINEDEBUG=-all "$wine_dir/wine64" reg query 'HKLM\Software\Wow6432Node\QZ Example Product' /v Version 2>/dev/null | tr -d '\r' | awk '/Version/ {print $3}')"
  echo "the result (qzpkg result):"
  run_tool result "$(os_path "$pkg")" | sed 's/^/  /'
  WINEDEBUG=-all "$wine_dir/wine64" msiexec /x "$(os_path "$pkg/example-2.msi")" /qn && echo "the example product was removed again"
}

# A package that carries only a pointer to its setup: a zip on a local HTTP server, its SHA-256, and the
# files to take out of it.
download_install() {
  local pkg=$work/download served=$work/served port_file=$work/served.port peer hash
  mkdir -p "$pkg" "$served/zip"
  cp "build/$preset/qzri/riwrap/$exe" "$pkg/"
  cp "build/$preset/examples/$setup" "$served/zip/setup.exe"
  cp examples/package/examplesetup.ini "$served/zip/"
  (cd "$served/zip" && python3 -c 'import sys, zipfile; z = zipfile.ZipFile("../product.zip", "w"); [z.write(f) for f in sys.argv[1:]]' setup.exe examplesetup.ini)
  python3 tests/transport/httppeer.py "$served" >"$port_file" &
  peer=$!
  until [ -s "$port_file" ]; do sleep 0.1; done
  hash=$(sha256sum "$served/product.zip" | cut -d' ' -f1)
  printf '[Setup]\r\nExecutable=setup.exe\r\n[SetupMainResult]\r\nFile=result.ini\r\nSection=Result\r\n' >"$pkg/package.qpd"
  printf '[qzpkgsrc]\r\nshould_download=1\r\n' >"$pkg/qzriwrap.cfg"
  printf '[source]\r\nurl=http://127.0.0.1:%s/product.zip\r\nsha256=%s\r\nextract_root=unpacked\r\nrel_paths=setup.exe;examplesetup.ini\r\n' \
    "$(head -n 1 "$port_file")" "$hash" >"$pkg/qzpkgsrc.ini"
  echo "package source (qzpkgsrc.ini):"; tr -d '\r' <"$pkg/qzpkgsrc.ini" | sed 's/^/  /'
  rm -f "$work/trace/\$qzriwrp.txt"
  set +e
  if [ "$mode" = wine ]; then scripts/wine-run.sh "$pkg/$exe" /s; else "$pkg/$exe" /s; fi
  echo "exit code:    $?"
  set -e
  kill "$peer"
  tr -d '\r' <"$work/trace/\$qzriwrp.txt" | grep -E "Need to download|QZTRANSPORT|Download OK|sha256 expected|Extract archive|File '.*' copied|Exit code" |
    sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /'
  echo "qzriwrap.cfg afterwards:"; tr -d '\r' <"$pkg/qzriwrap.cfg" | sed 's/^/  /'
  echo "files in the package folder:"; (cd "$pkg" && ls -1 | sed 's/^/  /')
}

# A task whose setup exits with 3010: the result goes to a test administration server (over TLS, its
# certificate pinned by the package's ss_install.xml), which accepts the reboot at its second poll.
reboot_request() {
  local pkg=$work/reboot-request srv=$work/admin n=0 server
  mkdir -p "$pkg" "$srv"
  cp "build/$preset/qzri/riwrap/$exe" "$pkg/"
  cp "build/$preset/examples/$setup" "$pkg/setup.exe"
  printf '[Result]\r\nExitCode=3010\r\n' >"$pkg/examplesetup.ini"
  # 3010 needs a reboot; natively the exit status keeps its low 8 bits, 194. The server is asked every
  # second, at most ten times (a day's worth by default).
  printf '[Product]\r\nName=Example Product\r\n[Setup]\r\nExecutable=setup.exe\r\n[SetupProcessResult_NeedReboot]\r\n3010=1\r\n194=1\r\n[ExtendedSettings]\r\nRebootPollAttempts=10\r\nRebootPollIntervalSec=1\r\n' >"$pkg/package.qpd"
  bash tests/transport/make_test_ca.sh "$srv/ca"
  cp "$srv/ca/ca.pem" "$pkg/server-ca.pem"
  echo 0,0,1 >"$srv/script"
  python3 tests/qzri/adminserver.py "$srv" "$srv/ca/server.pem" "$srv/ca/server.key" >"$srv/port" &
  server=$!
  until [ -s "$srv/port" ]; do sleep 0.1; done
  cat >"$pkg/ss_install.xml" <<XML
<?xml version="1.0" encoding="utf-8"?>
<settings_storage format="1">
  <product name="1103"><version name="1.0.0.0"><section name="SS_INSTALL">
    <value name="ServerName" type="STRING_T" value="localhost"/>
    <value name="ServerSSLPort" type="INT_T" value="$(head -n 1 "$srv/port")"/>
    <value name="UseSSLConnection" type="BOOL_T" value="true"/>
    <value name="ServerCert" type="STRING_T" value="server-ca.pem"/>
  </section></version></product>
</settings_storage>
XML
  cat >"$work/ss/local_ss.xml" <<'XML'
<?xml version="1.0" encoding="utf-8"?>
<settings_storage format="1">
  <product name="1103"><version name="1.0.0.0"><section name="QZNAG_HOSTID_SECTION">
    <value name="QZNAG_HOSTID" type="STRING_T" value="demo-host"/>
    <value name="QZNAG_AUTH_NAGENT_ID" type="STRING_T" value="demo-agent-id"/>
    <value name="QZNAG_AUTH_NAGENT_NAME" type="STRING_T" value="demo-agent"/>
  </section></version></product>
</settings_storage>
XML
  local second=$work/trace/\$qzriwrp_srvri_demo-task-8.txt
  rm -f "$work/trace/\$qzriwrp.txt" "$work/trace/\$qzriwrp_srvri"*
  set +e
  if [ "$mode" = wine ]; then scripts/wine-run.sh "$pkg/$exe" /s TASK_ID=demo-task-8; else "$pkg/$exe" /s TASK_ID=demo-task-8; fi
  echo "exit code:    $?"
  set -e
  tr -d '\r' <"$work/trace/\$qzriwrp.txt" | grep -E "RequestPxgReboot: Run|Reboot state|Exit code" |
    sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /'
  until grep -q "Exit. Attempts counter" "$second" 2>/dev/null || [ $n -ge 300 ]; do
    sleep 0.2; n=$((n + 1))
  done
  kill "$server"
  echo "the second instance ($(basename "$second")):"
  tr -d '\r' <"$second" |
    grep -E "GetServerConnection: Server|RequestPxgRebootWorker|CallShouldForceReboot" | grep -v -E "^\S+ \S+ \S+ [A-Z]+ D " |
    sed -e 's/^[0-9-]* [0-9:.]* \[[0-9:]*\] /  /'
  echo "what the server received:"
  python3 -c 'import json, sys
for line in open(sys.argv[1]):
    c = json.loads(line)
    print("  %s -> %s" % (c["op"], c["answer"]))' "$srv/calls.log"
  echo "files in the package folder:"; (cd "$pkg" && ls -1 | sed 's/^/  /')
}

if [ "$mode" = wine ]; then
  say "5. an installation across a reboot: the service resumes the task and the result is reported"
  reboot_install
  say "6. the example Windows Installer package, installed in the agent's process"
  msi_install
  say "6b. an upgrade: the agent removes the old version of the example product before it installs the new one"
  upgrade_install
fi

say "7. a package whose setup is downloaded from a local server"
download_install

say "8. a reboot-pending result handed to the administration server, which accepts the reboot"
reboot_request

say "done: the agent ran $([ "$mode" = wine ] && echo 'under wine64' || echo natively); files are in $work"
