#!/usr/bin/env bash
# Shared helpers for the setup, run and test scripts: installs what is missing, builds whisper.cpp once.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
DEPS="$ROOT/.deps"

APT_PACKAGES=(
  cmake ninja-build ccache g++ pkg-config git ca-certificates
  libcurl4-openssl-dev nlohmann-json3-dev libssl-dev
  libavformat-dev libavcodec-dev libswresample-dev libavutil-dev
  libsecret-1-dev libspdlog-dev libfmt-dev
  libgtest-dev libgmock-dev libbenchmark-dev libcpp-httplib-dev
  libxss-dev libx11-dev libxcb1-dev libicu-dev libsystemd-dev
  qt6-base-dev qt6-charts-dev fonts-dejavu-core
  # Qt Charts' CMake package needs Qt OpenGL's, which Debian ships apart.
  libqt6opengl6-dev
)
# libclang-rt-14-dev: clang's sanitizer and libFuzzer runtimes (only recommended by clang).
# locales: the sources localedef builds the tests' comma-decimal locale from.
TEST_APT_PACKAGES=(clang libclang-rt-14-dev clang-format x11-utils espeak-ng ffmpeg xvfb xauth dbus dbus-x11
                   gnome-keyring libsecret-tools locales)

# One compiler cache per user, shared by every clone: paths are hashed relative to the clone, so a
# fresh checkout on a machine that built before compiles only what changed.
export CCACHE_DIR="${CCACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/ccache}"
export CCACHE_BASEDIR="$ROOT"
export CCACHE_NOHASHDIR=1
export CCACHE_MAXSIZE="${CCACHE_MAXSIZE:-5G}"

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# Installs only the packages that are not installed yet, so a second run costs one dpkg query.
ensure_apt() {
  local missing=()
  local p
  for p in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$p")
    fi
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
  fi
}

WHISPER_NPM_PACKAGE="nodejs-whisper@0.3.1"
WHISPER_SHA256="92041caf2b26c74b7f489fedf37bd093f216eebd61df512045ec2d19d0531d37"
# Bump when the flags or the patches below change: every existing .deps tree is then rebuilt.
WHISPER_BUILD_REVISION="cpu-variants-5"
# One CPU back-end per step in instruction sets that matters to the kernels: plain x86-64, SSE4.2,
# AVX, AVX2 (most desktops and laptops), AVX2 with VNNI (recent Intel desktops), AVX-512 and AMX.
# The other variants ggml offers differ little from one of these and cost minutes to build
# (scripts/whisper-cpp/cpu-variants-subset.patch leaves them out).
WHISPER_CPU_VARIANTS="x64;sse42;sandybridge;haswell;alderlake;skylakex;sapphirerapids"

# whisper.cpp 1.9.1 from a pinned, digest-checked source tree, patched by scripts/whisper-cpp/,
# built once into .deps/whisper. Only the whisper library, the ggml libraries it needs and ggml's
# CPU back-ends are built and copied: that source tree carries other libraries we do not use, and
# its own install step would want them too.
#
# The CPU back-end is built once per instruction-set level (plain x86-64 up to AVX-512 and AMX),
# each a libggml-cpu-*.so; the best one this processor runs is chosen when the program loads
# them. So one build runs on any x86-64 and uses the wide vector units where they exist.
ensure_whisper() {
  local prefix="$DEPS/whisper"
  if [ -f "$prefix/.built-$WHISPER_SHA256-$WHISPER_BUILD_REVISION" ]; then return 0; fi
  if [ -z "${CORVANE_BUILD_WHISPER:-}" ] && [ -f /usr/include/whisper.h ] \
     && ls /usr/lib/*/libwhisper.so >/dev/null 2>&1; then
    echo "using the system whisper.cpp"; return 0
  fi
  command -v npm >/dev/null 2>&1 || ensure_apt npm
  command -v patch >/dev/null 2>&1 || ensure_apt patch
  local work="$DEPS/src"
  mkdir -p "$work"
  local tarball="$work/nodejs-whisper-0.3.1.tgz"
  if [ ! -f "$tarball" ] || ! echo "$WHISPER_SHA256  $tarball" | sha256sum -c --status; then
    rm -f "$tarball"
    (cd "$work" && npm pack --silent "$WHISPER_NPM_PACKAGE" >/dev/null)
  fi
  if ! echo "$WHISPER_SHA256  $tarball" | sha256sum -c --status; then
    echo "whisper.cpp source digest mismatch for $tarball" >&2
    exit 1
  fi
  echo "building whisper.cpp 1.9.1 into $prefix (a few minutes: one CPU back-end per instruction set)"
  rm -rf "$work/package" "$work/whisper-build"
  tar -xzf "$tarball" -C "$work"
  local src="$work/package/cpp/whisper.cpp"
  local patch_file
  for patch_file in "$ROOT"/scripts/whisper-cpp/*.patch; do
    patch -s -p1 -d "$src" <"$patch_file"
  done
  cmake -S "$src" -B "$work/whisper-build" -G Ninja \
    -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON \
    -DWHISPER_BUILD_EXAMPLES=OFF -DWHISPER_BUILD_TESTS=OFF -DWHISPER_BUILD_SERVER=OFF \
    -DGGML_NATIVE=OFF -DGGML_BACKEND_DL=ON -DGGML_CPU_ALL_VARIANTS=ON \
    -DGGML_CPU_VARIANTS="$WHISPER_CPU_VARIANTS" \
    -DCMAKE_INSTALL_RPATH='$ORIGIN' -DCMAKE_BUILD_WITH_INSTALL_RPATH=ON \
    -DCMAKE_INSTALL_PREFIX="$prefix" \
    $(command -v ccache >/dev/null && echo -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache) >/dev/null
  cmake --build "$work/whisper-build" --target whisper -j"$(nproc)" >/dev/null
  local built wanted
  built="$(find "$work/whisper-build/bin" -name 'libggml-cpu-*.so' | wc -l)"
  wanted="$(tr ';' '\n' <<<"$WHISPER_CPU_VARIANTS" | wc -l)"
  if [ "$built" -ne "$wanted" ]; then
    echo "whisper.cpp: built $built CPU back-end variants, wanted $wanted ($WHISPER_CPU_VARIANTS)" >&2
    exit 1
  fi
  rm -rf "$prefix"
  mkdir -p "$prefix/lib" "$prefix/include" "$prefix/bin"
  cp -a "$work/whisper-build/bin/"libwhisper.so* "$work/whisper-build/bin/"libggml*.so* "$prefix/lib/"
  cp "$src/include/whisper.h" "$src/ggml/include/"*.h "$prefix/include/"
  rm -rf "$work/package" "$work/whisper-build"
  touch "$prefix/.built-$WHISPER_SHA256-$WHISPER_BUILD_REVISION"
}
