#!/usr/bin/env bash
# Installs what Corvane needs to build (and, with --tests, to test) on Debian 12. Idempotent.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

ensure_apt "${APT_PACKAGES[@]}"
if [ "${1:-}" = "--tests" ]; then ensure_apt "${TEST_APT_PACKAGES[@]}"; fi
ensure_whisper
