#!/usr/bin/env bash
# Checks every C++ source of the repository against .clang-format; with --fix, rewrites them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mapfile -t files < <(git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h')
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
report="$(mktemp)"
trap 'rm -f "$report"' EXIT
if ! clang-format --dry-run --Werror "${files[@]}" 2>"$report"; then
  grep -E '^[^ ].*(warning|error):' "$report" | cut -d: -f1 | sort -u | sed 's/^/  not formatted: /' >&2
  echo "formatting differs from .clang-format; fix it with: bash scripts/format.sh --fix" >&2
  exit 1
fi
