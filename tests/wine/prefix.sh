# Machines for Windows programs: Wine prefixes, each a clone of one template. To be sourced.
#
#   make_template TEMPLATE                  once for each build directory; does nothing when it is there
#   clone_prefix TEMPLATE PREFIX            a fresh machine in a new directory
#   start_machine PREFIX                    sets WINEPREFIX; from here on `wine` runs on this machine
#   install_bench BIN_DIR PROGRAM...        the engine's service, and our fwpuclnt.dll and wtsapi32.dll
#                                           for the programs
#   stop_machine                            ends everything that runs on it; to be called on every path
#
# Redirect the output of `wine` to files: background processes inherit a pipe and would hold it open.

export WINEDEBUG=-all
# The unset display keeps Wine from looking for one.
unset DISPLAY

# Where distributions put the server when it is not on the path.
wine_server() {
  local candidate
  for candidate in wineserver /usr/lib/wine/wineserver64 /usr/lib/wine/wineserver; do
    if command -v "$candidate" >/dev/null; then
      "$candidate" "$@"
      return
    fi
  done
  echo "wineserver is not installed" >&2
  return 1
}

make_template() {
  local template=$1
  mkdir -p "$(dirname "$template")"
  (
    # Tests that run at once want one template.
    flock 9
    [ "$(cat "$template/made-by" 2>/dev/null)" = "$(wine --version)" ] && exit 0
    rm -rf "$template" "$template.part"
    mkdir "$template.part"
    export WINEPREFIX=$template.part
    WINEDLLOVERRIDES="mscoree,mshtml=" wineboot -i >/dev/null 2>&1
    # Wine's default is Windows 7.
    wine winecfg -v win10 >/dev/null 2>&1
    # A program that crashes just ends, without a debugger's report on the output.
    wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger \
      /t REG_SZ /d '' /f >/dev/null 2>&1
    wine_server -k || true
    wine_server -w
    [ -f "$template.part/system.reg" ] || { echo "Wine made no machine" >&2; exit 1; }
    wine --version >"$template.part/made-by"
    mv "$template.part" "$template"
  ) 9>"$template.lock"
}

clone_prefix() {
  local template=$1 prefix=$2 file
  cp -al "$template" "$prefix"
  # Wine rewrites these in place, through a hard link into the template.
  for file in system user userdef; do
    cp --remove-destination "$template/$file.reg" "$prefix/$file.reg"
  done
}

start_machine() {
  export WINEPREFIX=$1
  # Persistent: otherwise the server ends with the last ordinary process and takes services along.
  wine_server -p
}

stop_machine() {
  [ -n "${WINEPREFIX:-}" ] || return 0
  wine_server -k 2>/dev/null || true
  wine_server -w 2>/dev/null || true
}

# Has a program use our libraries: Wine prefers its own to most of them unless told so.
use_bench() {
  local library
  for library in fwpuclnt wtsapi32; do
    wine reg add "HKCU\\Software\\Wine\\AppDefaults\\$1\\DllOverrides" /v $library /d native /f \
      >/dev/null 2>&1
  done
}

install_bench() {
  local bin_dir=$1 program
  shift
  local system32=$WINEPREFIX/drive_c/windows/system32 bench=$WINEPREFIX/drive_c/bench
  mkdir -p "$bench"
  cp "$bin_dir/BFE.exe" "$bin_dir/wfpctl.exe" "$bench/"
  # The template's files hang on the same inodes: they must not be overwritten in place.
  cp --remove-destination "$bin_dir/fwpuclnt.dll" "$bin_dir/wtsapi32.dll" "$system32/"
  for program in "$@" wfpctl.exe; do use_bench "$program"; done
  # Both fail on a machine that has the service already; whether it runs is what counts.
  wine sc create BFE DisplayName= 'Base Filtering Engine' binPath= 'C:\bench\BFE.exe' >/dev/null 2>&1 || true
  wine sc start BFE >/dev/null 2>&1 || true
  wait_for_engine
}

# `sc start` returns while the service still starts.
wait_for_engine() {
  local try
  for try in $(seq 100); do
    wine 'C:\bench\wfpctl.exe' count >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  echo "the service BFE did not start" >&2
  return 1
}
