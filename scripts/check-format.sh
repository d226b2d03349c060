#!/usr/bin/env bash
# Fails when a tracked C++ or CUDA file is not formatted with the repository's .clang-format.
# With --fix, formats them in place instead.
set -euo pipefail
cd "$(git rev-parse --show-toplevel)"
mapfile -t files < <(git ls-files -co --exclude-standard -- '*.h' '*.hpp' '*.cpp' '*.cu' '*.cuh')
[ ${#files[@]} -eq 0 ] && exit 0
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
clang-format --dry-run -Werror "${files[@]}"
echo "check-format: ${#files[@]} files formatted"
