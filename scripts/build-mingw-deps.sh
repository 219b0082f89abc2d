#!/usr/bin/env bash
# Builds the static Windows (mingw-w64) libraries that Debian does not ship for
# mingw: for the editor's drawing layer pixman, FreeType, libpng and cairo
# (win32 surface, FreeType font backend, no fontconfig); for the file decoders
# libogg, libvorbis (the Ogg Vorbis decoder, libvorbisfile), libFLAC,
# libsndfile (WAV, RF64, AIFF, FLAC; no Vorbis, Opus or MPEG inside it) and
# libmpg123. zlib comes from Debian's libz-mingw-w64-dev.
#
# The sources are Debian's own source packages (apt-get source). The result is
# installed once into a cached prefix outside the build tree, keyed by the
# Debian versions of the libraries and the recipe revision below; a second run
# only prints the prefix.
#
# STDOUT carries exactly one line: the prefix. Everything else goes to stderr
# or to the log file inside the cache.
set -euo pipefail

recipe=4
cache_root=${VELORUM_MINGW_CACHE:-${HOME}/.cache/velorum/mingw-deps}
host=x86_64-w64-mingw32
jobs=${VELORUM_JOBS:-2}
[ "$jobs" -gt 2 ] && jobs=2

log() { echo "build-mingw-deps: $*" >&2; }

# The source packages and the -dev packages whose versions key the cache.
sources=(pixman freetype libpng1.6 cairo libogg libvorbis flac libsndfile mpg123)
stamp_pkgs=(libpixman-1-dev libfreetype-dev libpng-dev libcairo2-dev libogg-dev libvorbis-dev libflac-dev
  libsndfile1-dev libmpg123-dev)

versions=$(dpkg-query -W -f='${source:Version} ' "${stamp_pkgs[@]}" 2>/dev/null || true)
stamp=$(printf 'r%s %s' "$recipe" "$versions" | sha1sum | cut -c1-12)
prefix="$cache_root/$stamp"

if [ -f "$prefix/.complete" ]; then
  echo "$prefix"
  exit 0
fi

mkdir -p "$cache_root"
exec 9>"$cache_root/.lock"
flock 9
if [ -f "$prefix/.complete" ]; then   # another run finished it meanwhile
  echo "$prefix"
  exit 0
fi

logfile="$cache_root/build-$stamp.log"
: >"$logfile"
log "building into $prefix (log: $logfile)"
started=$(date +%s)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

# apt-get source needs deb-src entries; derive them from the machine's own
# Debian sources when none are configured.
have_deb_src() {
  grep -rqsE '^(deb-src|Types:.*deb-src)' /etc/apt/sources.list /etc/apt/sources.list.d/ 2>/dev/null
}
if ! have_deb_src; then
  log "enabling deb-src entries"
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    sed 's/^Types:.*$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
      $SUDO tee /etc/apt/sources.list.d/velorum-deb-src.sources >/dev/null
  elif [ -f /etc/apt/sources.list ]; then
    grep -E '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
      $SUDO tee /etc/apt/sources.list.d/velorum-deb-src.list >/dev/null
  else
    log "no Debian sources list found"; exit 1
  fi
  $SUDO apt-get update -qq >>"$logfile" 2>&1
fi

work="$cache_root/work-$stamp"
rm -rf "$work" "$prefix"
mkdir -p "$work/dl" "$prefix"

# Fetch each source package. The upstream tarball is all that is built, so a
# missing Debian diff on the mirror is tolerated as long as the .orig arrives;
# when the newest version is missing, older ones are tried.
fetch() {
  local pkg=$1 v
  (cd "$work/dl" && apt-get source -qq --download-only "$pkg" >>"$logfile" 2>&1) || true
  if ! ls "$work/dl/${pkg}_"*.orig.tar.* >/dev/null 2>&1; then
    for v in $(apt-cache showsrc "$pkg" 2>/dev/null | sed -n 's/^Version: //p'); do
      (cd "$work/dl" && apt-get source -qq --download-only "$pkg=$v" >>"$logfile" 2>&1) || true
      ls "$work/dl/${pkg}_"*.orig.tar.* >/dev/null 2>&1 && break
    done
  fi
  local tarball
  tarball=$(ls "$work/dl/${pkg}_"*.orig.tar.* 2>/dev/null | grep -v -e '\.asc$' -e '-ft2d' | head -n1 || true)
  if [ -z "$tarball" ]; then log "could not fetch the source of $pkg"; exit 1; fi
  tar -C "$work" -xf "$tarball"
}
for s in "${sources[@]}"; do fetch "$s"; done

src() { ls -d "$work/$1"-[0-9]* | head -n1; }

export PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig:/usr/$host/lib/pkgconfig"
export PKG_CONFIG_PATH=""
export CC="$host-gcc-posix" AR="$host-ar" RANLIB="$host-ranlib" STRIP="$host-strip"
export CFLAGS="-O2 -g0" CPPFLAGS="-I$prefix/include" LDFLAGS="-L$prefix/lib"
common=(--host="$host" --build="$(gcc -dumpmachine)" --prefix="$prefix" --enable-static --disable-shared)

step_started=$started
step() {
  local now
  now=$(date +%s)
  log "$1 (previous step $((now - step_started)) s)"
  step_started=$now
}

step "pixman"
(cd "$(src pixman)" && ./configure "${common[@]}" --disable-gtk --disable-libpng --disable-openmp \
   && make -j"$jobs" -C pixman && make -C pixman install && make install-pkgconfigDATA) >>"$logfile" 2>&1

step "freetype"
(cd "$(src freetype)" && ./configure "${common[@]}" --with-zlib=yes --without-bzip2 --without-png \
   --without-harfbuzz --without-brotli && make -j"$jobs" && make install) >>"$logfile" 2>&1

step "libpng"
(cd "$(src libpng)" && ./configure "${common[@]}" && make -j"$jobs" && make install) >>"$logfile" 2>&1

step "cairo"
(cd "$(src cairo)" && ./configure "${common[@]}" --enable-win32 --enable-win32-font --enable-ft --disable-fc \
   --disable-xlib --disable-xlib-xrender --disable-xcb --disable-quartz --enable-png --enable-pdf --enable-ps \
   --enable-svg --disable-script --disable-interpreter --disable-trace --disable-gobject --disable-valgrind \
   --disable-full-testing --disable-symbol-lookup \
   && make -j"$jobs" -C src && make -C src install) >>"$logfile" 2>&1

step "libogg"
(cd "$(src libogg)" && ./configure "${common[@]}" \
   && make -j"$jobs" -C src && make -C src install && make -C include install && make install-pkgconfigDATA) \
   >>"$logfile" 2>&1

# libvorbis, libvorbisenc and libvorbisfile: the library folder and headers only.
step "libvorbis"
(cd "$(src libvorbis)" && ./configure "${common[@]}" --with-ogg="$prefix" --disable-docs --disable-examples \
   --disable-oggtest && make -j"$jobs" -C lib && make -C lib install && make -C include install \
   && make install-pkgconfigDATA) >>"$logfile" 2>&1

# libFLAC only: no command-line programs, no C++ library, no documentation.
# Code that includes its headers must define FLAC__NO_DLL to link the static
# library (flac.pc does not say so); libsndfile's step below does.
step "flac"
(cd "$(src flac)" && ./configure "${common[@]}" --disable-cpplibs --disable-programs --disable-examples \
   --disable-doxygen-docs --disable-oggtest --disable-thorough-tests --disable-stack-smash-protection \
   --disable-fortify-source --disable-rpath --with-ogg="$prefix" \
   && make -j"$jobs" -C src/libFLAC && make -C src/libFLAC install && make -C include install) >>"$logfile" 2>&1

# libsndfile's own build treats FLAC, Vorbis and Opus as one switch. Only its
# FLAC codec is wanted here (Ogg Vorbis is decoded by libvorbisfile), so the
# Vorbis and Opus codecs are compiled as the library's own "not compiled in"
# stubs and dropped from its link and pkg-config requirements.
step "libsndfile"
(cd "$(src libsndfile)" \
   && sed -i 's/^#if HAVE_EXTERNAL_XIPH_LIBS$/#if 0/' src/ogg_vorbis.c src/ogg_opus.c \
   && sed -i -e '/Vorbis::vorbisenc>/d' -e '/Opus::opus>/d' -e 's/"flac ogg vorbis vorbisenc opus"/"flac ogg"/' \
        CMakeLists.txt \
   && sed -i 's/if (Vorbis_FOUND AND FLAC_FOUND AND Opus_FOUND)/if (FLAC_FOUND)/' cmake/SndFileChecks.cmake \
   && cmake -S . -B build -G Ninja -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER="$CC" \
        -DCMAKE_CXX_COMPILER="$host-g++-posix" \
        -DCMAKE_RC_COMPILER="$host-windres" -DCMAKE_AR="$(command -v "$AR")" \
        -DCMAKE_RANLIB="$(command -v "$RANLIB")" -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS="-O2 -g0 -DFLAC__NO_DLL" \
        -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_FIND_ROOT_PATH="$prefix;/usr/$host" \
        -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY \
        -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY \
        -DBUILD_SHARED_LIBS=OFF -DBUILD_PROGRAMS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_TESTING=OFF \
        -DBUILD_REGTEST=OFF -DENABLE_CPACK=OFF -DENABLE_MPEG=OFF -DENABLE_EXTERNAL_LIBS=ON \
        -DENABLE_EXPERIMENTAL=OFF -DINSTALL_MANPAGES=OFF -DENABLE_PACKAGE_CONFIG=OFF \
   && cmake --build build -j"$jobs" --target sndfile && cmake --install build) >>"$logfile" 2>&1
grep -q '^#define HAVE_EXTERNAL_XIPH_LIBS 1' "$(src libsndfile)/build/src/config.h" ||
  { log "libsndfile was configured without FLAC"; exit 1; }

# libmpg123 only: no network (which would import winsock), no output modules.
# The build is not recursive, so the one library is made and installed by hand.
step "mpg123"
(cd "$(src mpg123)" && ./configure "${common[@]}" --with-cpu=x86-64 --enable-modules=no --enable-network=no \
   --enable-ipv6=no --with-audio=dummy --with-default-audio=dummy \
   && make -j"$jobs" src/libmpg123/libmpg123.la \
   && install -m 644 src/libmpg123/.libs/libmpg123.a "$prefix/lib/" \
   && install -m 644 src/libmpg123/mpg123.h src/libmpg123/fmt123.h "$prefix/include/" \
   && install -m 644 libmpg123.pc "$prefix/lib/pkgconfig/") >>"$logfile" 2>&1

for lib in libpixman-1.a libfreetype.a libpng16.a libcairo.a libogg.a libvorbis.a libvorbisfile.a libFLAC.a \
  libsndfile.a libmpg123.a; do
  if [ ! -f "$prefix/lib/$lib" ]; then log "missing $lib after the build"; exit 1; fi
done
[ -f "$prefix/lib/libpng.a" ] || cp "$prefix/lib/libpng16.a" "$prefix/lib/libpng.a"

rm -rf "$work"
touch "$prefix/.complete"
# Prefixes of older recipes or versions are of no further use.
for old in "$cache_root"/*/; do
  old=${old%/}
  [ "$old" = "$prefix" ] || rm -rf "$old"
done
log "done in $(( $(date +%s) - started )) s"
echo "$prefix"
