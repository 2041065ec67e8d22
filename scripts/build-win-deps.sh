#!/usr/bin/env bash
# Cross-builds the static Windows libraries the Windows build links against (zlib, OpenSSL, curl,
# libarchive, JsonCpp, pugixml) from the distribution's own source packages, so that the Windows
# binaries get the same security patches as the Linux ones.
#
# Usage: scripts/build-win-deps.sh TRIPLET      (i686-w64-mingw32 or x86_64-w64-mingw32)
#
# Environment:
#   QZ_CACHE_DIR  cache root (default: $HOME/.cache/qzriwrap)
#   QZ_JOBS       parallel compile jobs (default: nproc)
#
# The result is a prefix $QZ_CACHE_DIR/deps/TRIPLET-KEY with include/ and lib/ (static libraries
# only), plus a symlink $QZ_CACHE_DIR/deps/TRIPLET pointing at it. KEY changes whenever this script,
# the cross compiler, a source package version or the zlib package changes, so a stale prefix is
# never reused. The prefix path is the last line printed on stdout; progress goes to stderr and
# the compiler output to log files in $QZ_CACHE_DIR/deps/logs.
set -euo pipefail
export LC_ALL=C

# Variables that a calling environment (a host build, or make running this from a CMake step)
# may have set would leak into the cross builds: host CFLAGS do not suit the cross compiler,
# OpenSSL's Configure takes CC from the environment, and a parent make's jobserver flags confuse
# the nested makes.
unset CC CXX CPP AR RANLIB RC WINDRES LD NM STRIP CFLAGS CXXFLAGS CPPFLAGS LDFLAGS LIBS \
  MAKEFLAGS MFLAGS MAKELEVEL CMAKE_GENERATOR CMAKE_TOOLCHAIN_FILE CMAKE_PREFIX_PATH \
  PKG_CONFIG_PATH PKG_CONFIG_LIBDIR OPENSSL_CONF DESTDIR

SCRIPT_PATH=$(readlink -f "${BASH_SOURCE[0]}")
SCRIPT_DIR=$(dirname "$SCRIPT_PATH")

# Source packages in build order (zlib comes from the installed MinGW zlib package instead).
SOURCE_PACKAGES=(openssl curl libarchive libjsoncpp pugixml)

# Where OpenSSL looks for its configuration, engines and provider modules at run time. The
# default would be the build prefix, i.e. a path such as C:/root/.cache/... that any unprivileged
# user may create on the target machine, and the program runs as SYSTEM. A folder below
# "Program Files" can only be created by administrators.
WIN_OPENSSLDIR='C:/Program Files/Common Files/SSL'

log() { printf 'build-win-deps: %s\n' "$*" >&2; }
die() { log "$*"; exit 1; }

usage() {
  printf 'usage: %s TRIPLET   (i686-w64-mingw32 or x86_64-w64-mingw32)\n' "$0" >&2
  exit 2
}

# ---------------------------------------------------------------------------------------------
# Set-up
# ---------------------------------------------------------------------------------------------

parse_args() {
  [ "$#" -eq 1 ] || usage
  TRIPLET=$1
  case "$TRIPLET" in
    i686-w64-mingw32) OPENSSL_TARGET=mingw; CPU=i686 ;;
    x86_64-w64-mingw32) OPENSSL_TARGET=mingw64; CPU=x86_64 ;;
    *) usage ;;
  esac
  JOBS=${QZ_JOBS:-$(nproc)}
  [[ "$JOBS" =~ ^[1-9][0-9]*$ ]] || die "QZ_JOBS must be a positive number, got '$JOBS'"
  local cache=${QZ_CACHE_DIR:-${HOME:?HOME is not set}/.cache/qzriwrap}
  mkdir -p "$cache/deps"
  # An absolute path, because the prefix path is handed to other builds.
  DEPS=$(cd "$cache/deps" && pwd -P)
  DL_DIR=$DEPS/src/dl
  LOG_DIR=$DEPS/logs
  SYSROOT=/usr/$TRIPLET
  mkdir -p "$DL_DIR" "$LOG_DIR"
}

install_packages() {
  # Its progress goes to stderr: stdout is reserved for the prefix path.
  "$SCRIPT_DIR/install-packages.sh" >&2 || die "scripts/install-packages.sh failed"
  local tool
  for tool in "$TRIPLET-gcc-posix" "$TRIPLET-g++-posix" "$TRIPLET-windres" "$TRIPLET-ar" \
    "$TRIPLET-ranlib" cmake ninja dpkg-source apt-get; do
    command -v "$tool" >/dev/null || die "required tool '$tool' is missing"
  done
  [ -f "$SYSROOT/lib/libz.a" ] || die "$SYSROOT/lib/libz.a is missing (libz-mingw-w64-dev)"
}

# Only one run at a time may touch the cache: two runs would share the download folder and
# could build the same prefix twice.
take_lock() {
  exec 9>"$DEPS/.lock"
  if ! flock -n 9; then
    log "waiting for another build-win-deps run to finish"
    flock 9
  fi
}

# ---------------------------------------------------------------------------------------------
# Source packages
# ---------------------------------------------------------------------------------------------

# Prints "VERSION SHA256 FILE" for every file of every version of a source package that apt's
# package lists know (the .dsc included), read from the local lists without network access.
source_index() {
  apt-cache showsrc --only-source "$1" 2>/dev/null | awk -v p="$1" '
    /^Package: / {pkg = $2; ver = ""; list = 0; next}
    /^Version: / {ver = $2; next}
    /^Checksums-Sha256:/ {list = 1; next}
    /^[^ ]/ || /^$/ {list = 0}
    list && pkg == p && NF == 3 {print ver, $1, $3}' | sort -u
}

# Prints the versions found in a source_index listing, newest first.
sorted_versions() {
  local v i
  local -a sorted=()
  while read -r v; do
    i=${#sorted[@]}
    sorted+=("$v")
    while [ "$i" -gt 0 ] && dpkg --compare-versions "${sorted[i-1]}" lt "$v"; do
      sorted[i]=${sorted[i-1]}
      i=$((i - 1))
    done
    sorted[i]=$v
  done < <(cut -d' ' -f1 <<<"$1" | sort -u)
  [ "${#sorted[@]}" -eq 0 ] || printf '%s
' "${sorted[@]}"
}

# True when every file of one version is in DL_DIR with the checksum from apt's lists.
have_locally() {
  local index=$1 ver=$2
  awk -v v="$ver" '$1 == v {print $2 "  " $3}' <<<"$index" |
    (cd "$DL_DIR" && sha256sum --check --status 2>/dev/null)
}

# Makes sure the source files of the newest obtainable version of a package are in DL_DIR and
# records its .dsc in DSC[pkg]. The check against apt's lists comes first because it needs no
# network and takes a fraction of a second, whereas each apt-get call costs about a second even
# when it has nothing to download. When the newest version cannot be fetched (a mirror that lags
# behind the package lists), an older one is used with a warning rather than failing the build;
# the newest one is tried again on every run.
fetch_source() {
  local pkg=$1 index ver first=1
  index=$(source_index "$pkg")
  local -a versions=()
  [ -z "$index" ] || mapfile -t versions < <(sorted_versions "$index")
  [ "${#versions[@]}" -gt 0 ] ||
    die "cannot obtain source package '$pkg' (are deb-src entries configured?)"
  for ver in "${versions[@]}"; do
    if have_locally "$index" "$ver" ||
      { (cd "$DL_DIR" && apt-get source --download-only "$pkg=$ver") >>"$LOG_DIR/download.log" 2>&1 &&
        have_locally "$index" "$ver"; }; then
      [ "$first" -eq 1 ] ||
        log "WARNING: using $pkg $ver, the newest version could not be downloaded (see $LOG_DIR/download.log)"
      DSC[$pkg]=$DL_DIR/${pkg}_${ver#*:}.dsc
      [ -f "${DSC[$pkg]}" ] || die "apt's lists name no ${DSC[$pkg]##*/}"
      return 0
    fi
    first=0
  done
  die "cannot obtain source package '$pkg' (download failed, see $LOG_DIR/download.log)"
}

dsc_field() { awk -v f="$2:" '$1 == f {print $2; exit}' "$1"; }

# Files a .dsc refers to, plus the .dsc itself.
dsc_files() {
  printf '%s\n' "$(basename "$1")"
  awk '/^Files:/{on=1; next} /^[^ ]/{on=0} on && NF == 3 {print $3}' "$1"
}

fetch_sources() {
  declare -gA DSC=()
  : >"$LOG_DIR/download.log"
  local pkg
  for pkg in "${SOURCE_PACKAGES[@]}"; do
    fetch_source "$pkg"
  done
}

# Removes the files of source versions that are no longer current. Files that belong to no .dsc
# (for example an upstream tarball of a version whose other files could not be downloaded yet)
# are kept, so that they are not downloaded again on every run.
prune_downloads() {
  local -A keep=()
  local pkg f d
  for pkg in "${SOURCE_PACKAGES[@]}"; do
    while read -r f; do keep[$f]=1; done < <(dsc_files "${DSC[$pkg]}")
  done
  for d in "$DL_DIR"/*.dsc; do
    [ -e "$d" ] || continue
    [ -z "${keep[$(basename "$d")]:-}" ] || continue
    while read -r f; do
      [ -n "${keep[$f]:-}" ] || rm -f "$DL_DIR/$f"
    done < <(dsc_files "$d")
  done
}

# Unpacks a source package with Debian's patches applied.
unpack() {
  local pkg=$1 dest=$2
  dpkg-source -x "${DSC[$pkg]}" "$dest"
}

# ---------------------------------------------------------------------------------------------
# Cache key and prefix
# ---------------------------------------------------------------------------------------------

compute_key() {
  local pkg
  {
    printf '== script\n'; cat "$SCRIPT_PATH"
    printf '== toolchain\n'; "$TRIPLET-g++-posix" --version; "$TRIPLET-gcc-posix" --version
    for pkg in "${SOURCE_PACKAGES[@]}"; do
      printf '== %s\n' "$pkg"; cat "${DSC[$pkg]}"
    done
    # zlib is not built from a source package but copied from the installed MinGW package.
    printf '== zlib\n'
    sha256sum "$SYSROOT/lib/libz.a" "$SYSROOT/include/zlib.h" "$SYSROOT/include/zconf.h"
  } | sha256sum | cut -c1-16
}

# Points DEPS/TRIPLET at the prefix. The link is created under a temporary name and renamed over
# the old one, so a concurrent reader sees either the old or the new prefix, never no link.
publish_prefix() {
  local tmp=$DEPS/.$TRIPLET.link.$$
  ln -sfn "$(basename "$PREFIX")" "$tmp"
  mv -Tf "$tmp" "$DEPS/$TRIPLET"
}

remove_old_prefixes() {
  local d
  for d in "$DEPS/$TRIPLET"-[0-9a-f]*; do
    if [ ! -d "$d" ] || [ -L "$d" ]; then continue; fi
    [[ "$(basename "$d")" =~ ^$TRIPLET-[0-9a-f]{16}$ ]] || continue
    [ "$d" = "$PREFIX" ] && continue
    log "removing old prefix $d"
    rm -rf "$d"
  done
}

# ---------------------------------------------------------------------------------------------
# Build helpers
# ---------------------------------------------------------------------------------------------

write_toolchain_file() {
  TOOLCHAIN_FILE=$WORK/toolchain.cmake
  cat >"$TOOLCHAIN_FILE" <<EOF
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR $CPU)
set(CMAKE_C_COMPILER $(command -v "$TRIPLET-gcc-posix"))
set(CMAKE_CXX_COMPILER $(command -v "$TRIPLET-g++-posix"))
set(CMAKE_RC_COMPILER $(command -v "$TRIPLET-windres"))
set(CMAKE_AR $(command -v "$TRIPLET-ar") CACHE FILEPATH "")
set(CMAKE_RANLIB $(command -v "$TRIPLET-ranlib") CACHE FILEPATH "")
# Libraries and headers only from the prefix and the MinGW sysroot, never from the Linux host;
# build tools (perl, python, ...) are host programs and are looked up normally.
set(CMAKE_FIND_ROOT_PATH $PREFIX $SYSROOT)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
EOF
}

# Configures a CMake project for the target with the settings every package shares.
cmake_configure() {
  local src=$1 build=$2
  shift 2
  # The file-prefix map keeps the temporary build path out of __FILE__ strings in the libraries.
  local flags="-O2 -DNDEBUG -ffile-prefix-map=$WORK/="
  cmake -S "$src" -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN_FILE" \
    -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS_RELEASE="$flags" \
    -DCMAKE_CXX_FLAGS_RELEASE="$flags" \
    -DCMAKE_INSTALL_PREFIX="$PREFIX" \
    -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_INSTALL_INCLUDEDIR=include \
    -DBUILD_SHARED_LIBS=OFF \
    "$@"
}

pkg_version() { dsc_field "${DSC[$1]}" Version; }

# Runs one build function with its output in a log file. On failure the end of the log is shown,
# because that is where the compiler or configure error is.
run_step() {
  local name=$1 version=$2 fn=$3 rc start=$SECONDS
  local logfile=$LOG_DIR/$TRIPLET-$name.log
  log "building $name $version for $TRIPLET"
  set +e
  (set -e; "$fn") >"$logfile" 2>&1 </dev/null
  rc=$?
  set -e
  if [ "$rc" -ne 0 ]; then
    log "building $name failed; last lines of $logfile:"
    tail -n 40 "$logfile" >&2
    die "building $name for $TRIPLET failed (full log: $logfile)"
  fi
  log "  $name done in $((SECONDS - start)) s"
}

# ---------------------------------------------------------------------------------------------
# Packages
# ---------------------------------------------------------------------------------------------

build_zlib() {
  # The MinGW zlib package already holds a static library built by the distribution; only the
  # static library is copied, not libz.dll.a, which CMake would otherwise prefer.
  install -m 644 "$SYSROOT/lib/libz.a" "$PREFIX/lib/libz.a"
  install -m 644 "$SYSROOT/include/zlib.h" "$SYSROOT/include/zconf.h" "$PREFIX/include/"
}

build_openssl() {
  local src=$WORK/openssl
  unpack openssl "$src"
  cd "$src"
  # Debian's pic.patch rewrites the 32-bit x86 assembly for ELF position-independent code,
  # which the PE assembler rejects (BFD_RELOC_386_GOTPC); Windows code does not need it.
  if grep -qx 'pic.patch' debian/patches/series; then
    patch -R -p1 <debian/patches/pic.patch
  fi
  # The -posix compilers are the ones everything else is built with; the prefix makes them
  # TRIPLET-gcc-posix. Engines and loadable modules are not needed and would be more files to
  # search for at run time; no-autoload-config stops the library from reading a config file on
  # its own.
  ./Configure "$OPENSSL_TARGET" no-shared no-tests no-module no-engine no-autoload-config \
    --cross-compile-prefix="$TRIPLET-" CC=gcc-posix CXX=g++-posix \
    --prefix="$PREFIX" --libdir=lib
  local -a dirs=(
    "OPENSSLDIR=$WIN_OPENSSLDIR"
    "ENGINESDIR=$WIN_OPENSSLDIR/engines-3"
    "MODULESDIR=$WIN_OPENSSLDIR/ossl-modules"
  )
  make -j"$JOBS" "${dirs[@]}" build_libs
  make "${dirs[@]}" install_dev
  # The build prefix must not end up in the library as a search path (see WIN_OPENSSLDIR).
  # (grep reads the archives directly: "strings | grep -q" fails under pipefail when grep
  # stops reading early.)
  grep -qaF "OPENSSLDIR: \"$WIN_OPENSSLDIR\"" "$PREFIX/lib/libcrypto.a" ||
    { echo "OPENSSLDIR override is missing from libcrypto.a"; return 1; }
  if grep -qaF "$PREFIX" "$PREFIX/lib/libcrypto.a" "$PREFIX/lib/libssl.a"; then
    echo "the build prefix is baked into the OpenSSL libraries"
    return 1
  fi
}

build_curl() {
  local src=$WORK/curl build=$WORK/curl-build
  unpack curl "$src"
  # Schannel is the TLS backend: it uses the Windows certificate store and, with SSPI, the
  # proxy authentication of the logged-on account, so no CA bundle is shipped or looked up
  # (without "none" the Linux bundle path would be compiled in).
  cmake_configure "$src" "$build" \
    -DBUILD_CURL_EXE=OFF -DBUILD_TESTING=OFF -DENABLE_MANUAL=OFF -DCURL_ENABLE_EXPORT_TARGET=ON \
    -DHTTP_ONLY=ON -DCURL_DISABLE_LDAP=ON -DCURL_DISABLE_LDAPS=ON \
    -DCURL_ZLIB=ON -DZLIB_INCLUDE_DIR="$PREFIX/include" -DZLIB_LIBRARY="$PREFIX/lib/libz.a" \
    -DCURL_USE_SCHANNEL=ON -DCURL_WINDOWS_SSPI=ON -DCURL_USE_OPENSSL=OFF \
    -DCURL_USE_MBEDTLS=OFF -DCURL_USE_BEARSSL=OFF -DCURL_USE_WOLFSSL=OFF -DCURL_USE_NSS=OFF \
    -DCURL_CA_BUNDLE=none -DCURL_CA_PATH=none \
    -DUSE_LIBIDN2=OFF -DUSE_WIN32_IDN=OFF -DCURL_USE_LIBPSL=OFF \
    -DCURL_USE_LIBSSH2=OFF -DCURL_USE_LIBSSH=OFF -DCURL_USE_GSSAPI=OFF \
    -DCURL_BROTLI=OFF -DCURL_ZSTD=OFF -DUSE_NGHTTP2=OFF -DUSE_NGTCP2=OFF -DUSE_QUICHE=OFF \
    -DUSE_MSH3=OFF -DENABLE_ARES=OFF -DPICKY_COMPILER=OFF
  cmake --build "$build" -j "$JOBS"
  cmake --install "$build"
}

build_libarchive() {
  local src=$WORK/libarchive build=$WORK/libarchive-build
  unpack libarchive "$src"
  # Only zlib is enabled: the program reads ZIP and tar.gz archives, and every further library
  # would have to be cross-built as well. POSIX_REGEX_LIB=NONE stops the search for a regex
  # library in libgcc. ZLIB_WINAPI is answered in advance because finding it out means running
  # a Windows program, which cmake cannot do here; the ..._WITH_LIB value must name the same
  # library, otherwise libarchive discards the answer.
  cmake_configure "$src" "$build" \
    -DENABLE_ZLIB=ON -DZLIB_INCLUDE_DIR="$PREFIX/include" -DZLIB_LIBRARY="$PREFIX/lib/libz.a" \
    -DZLIB_WINAPI=0 -DZLIB_WINAPI_WITH_LIB="$PREFIX/lib/libz.a" \
    -DENABLE_OPENSSL=OFF -DENABLE_MBEDTLS=OFF -DENABLE_NETTLE=OFF -DENABLE_LIBB2=OFF \
    -DENABLE_LZ4=OFF -DENABLE_LZO=OFF -DENABLE_LZMA=OFF -DENABLE_ZSTD=OFF -DENABLE_BZip2=OFF \
    -DENABLE_LIBXML2=OFF -DENABLE_EXPAT=OFF -DENABLE_PCREPOSIX=OFF -DENABLE_LIBGCC=OFF \
    -DENABLE_CNG=OFF -DENABLE_TAR=OFF -DENABLE_CPIO=OFF -DENABLE_CAT=OFF -DENABLE_XATTR=OFF \
    -DENABLE_ACL=OFF -DENABLE_ICONV=OFF -DENABLE_TEST=OFF -DENABLE_COVERAGE=OFF \
    -DENABLE_INSTALL=OFF -DENABLE_WERROR=OFF -DPOSIX_REGEX_LIB=NONE
  # The shared library target is not built at all; on Windows the static one is called
  # libarchive_static.a, and consumers expect the usual name.
  cmake --build "$build" -j "$JOBS" --target archive_static
  local lib
  lib=$(find "$build" -name 'libarchive_static.a' -print -quit)
  [ -n "$lib" ] || { echo "libarchive_static.a not found"; return 1; }
  install -m 644 "$lib" "$PREFIX/lib/libarchive.a"
  install -m 644 "$src/libarchive/archive.h" "$src/libarchive/archive_entry.h" "$PREFIX/include/"
}

build_jsoncpp() {
  local src=$WORK/jsoncpp build=$WORK/jsoncpp-build
  unpack libjsoncpp "$src"
  cmake_configure "$src" "$build" \
    -DBUILD_STATIC_LIBS=ON -DBUILD_OBJECT_LIBS=OFF \
    -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF \
    -DJSONCPP_WITH_PKGCONFIG_SUPPORT=OFF -DJSONCPP_WITH_EXAMPLE=OFF
  cmake --build "$build" -j "$JOBS"
  cmake --install "$build"
  [ -f "$PREFIX/lib/libjsoncpp.a" ] || { echo "libjsoncpp.a was not installed"; return 1; }
}

build_pugixml() {
  local src=$WORK/pugixml build=$WORK/pugixml-build
  unpack pugixml "$src"
  cmake_configure "$src" "$build" -DPUGIXML_BUILD_TESTS=OFF -DPUGIXML_USE_POSTFIX=OFF
  cmake --build "$build" -j "$JOBS"
  cmake --install "$build"
  [ -f "$PREFIX/lib/libpugixml.a" ] || { echo "libpugixml.a was not installed"; return 1; }
}

# Checks the finished prefix: every library and header the Windows build uses, and no import
# library for a DLL anywhere, because CMake's find_library would pick it over the static one.
check_prefix() {
  local f
  find "$PREFIX" -name '*.dll.a' -print -delete | sed 's/^/build-win-deps: removed import library /' >&2
  find "$PREFIX" -name '*.dll' -print -delete | sed 's/^/build-win-deps: removed DLL /' >&2
  for f in include/curl/curl.h include/archive.h include/archive_entry.h include/openssl/ssl.h \
    include/openssl/evp.h include/json/json.h include/pugixml.hpp include/pugiconfig.hpp \
    include/zlib.h include/zconf.h lib/libcurl.a lib/libarchive.a lib/libssl.a lib/libcrypto.a \
    lib/libjsoncpp.a lib/libpugixml.a lib/libz.a; do
    [ -f "$PREFIX/$f" ] || die "the finished prefix lacks $f"
  done
}

build_all() {
  log "building the Windows libraries for $TRIPLET in $PREFIX (logs in $LOG_DIR)"
  rm -rf "$PREFIX"
  mkdir -p "$PREFIX/include" "$PREFIX/lib"
  WORK=$(mktemp -d "$DEPS/tmp.$TRIPLET.XXXXXX")
  # A failed or interrupted build leaves neither its work folder nor a half-filled prefix.
  trap 'rm -rf "$WORK"; [ -f "$PREFIX/.complete" ] || rm -rf "$PREFIX"' EXIT
  write_toolchain_file

  run_step zlib "$(dpkg-query -W -f='${Version}' libz-mingw-w64-dev)" build_zlib
  run_step openssl "$(pkg_version openssl)" build_openssl
  run_step curl "$(pkg_version curl)" build_curl
  run_step libarchive "$(pkg_version libarchive)" build_libarchive
  run_step jsoncpp "$(pkg_version libjsoncpp)" build_jsoncpp
  run_step pugixml "$(pkg_version pugixml)" build_pugixml
  check_prefix

  local pkg
  {
    printf 'triplet %s\n' "$TRIPLET"
    printf 'zlib %s\n' "$(dpkg-query -W -f='${Version}' libz-mingw-w64-dev)"
    for pkg in "${SOURCE_PACKAGES[@]}"; do printf '%s %s\n' "$pkg" "$(pkg_version "$pkg")"; done
  } >"$PREFIX/.complete.tmp"
  mv "$PREFIX/.complete.tmp" "$PREFIX/.complete"
  rm -rf "$WORK"
  trap - EXIT
}

main() {
  parse_args "$@"
  install_packages
  take_lock
  # Work folders of runs that were killed; the lock guarantees that no run is using them.
  rm -rf "$DEPS"/tmp.*

  fetch_sources
  prune_downloads
  local key
  key=$(compute_key)
  PREFIX=$DEPS/$TRIPLET-$key

  if [ -f "$PREFIX/.complete" ]; then
    log "up to date: $PREFIX"
  else
    local start=$SECONDS
    build_all
    log "built $TRIPLET libraries in $((SECONDS - start)) s"
  fi
  publish_prefix
  remove_old_prefixes
  printf '%s\n' "$PREFIX"
}

main "$@"
