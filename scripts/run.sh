#!/usr/bin/env bash
# Sets up, builds and runs Corvane: in the tray when a display is available, headless otherwise.
# Arguments are passed on ("bash scripts/run.sh --headless", "bash scripts/run.sh enroll --help").
# Idempotent: installs only what is missing and rebuilds only what changed.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
bash "$ROOT/scripts/setup.sh"

cmake -S "$ROOT" -B "$ROOT/build-release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCORVANE_BUILD_TESTS=OFF -DCORVANE_BUILD_BENCH=OFF >/dev/null
cmake --build "$ROOT/build-release" --target corvane -j"$(nproc)"
exec "$ROOT/build-release/CorvaneApp/corvane" "$@"
