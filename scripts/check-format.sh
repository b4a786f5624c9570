#!/usr/bin/env bash
# Fails when a C++ file of the project is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files -co --exclude-standard -- '*.cpp' '*.h' | grep -v '^build/')
if ((${#files[@]})); then
  clang-format --dry-run --Werror "${files[@]}"
fi
