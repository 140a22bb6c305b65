#!/usr/bin/env bash
# Fails when a tracked C++ source differs from .clang-format; lists the files.
# Fix with: git ls-files '*.cpp' '*.h' | xargs clang-format -i
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
format=${CLANG_FORMAT:-clang-format}
"$format" --version
bad=()
while IFS= read -r file; do
    "$format" --dry-run --Werror "$file" >/dev/null 2>&1 || bad+=("$file")
done < <(git ls-files '*.cpp' '*.h' '*.hpp' '*.cc')
if [[ ${#bad[@]} -gt 0 ]]; then
    printf 'not formatted: %s\n' "${bad[@]}" >&2
    exit 1
fi
echo "all C++ sources match .clang-format"
