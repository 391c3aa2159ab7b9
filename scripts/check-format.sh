#!/usr/bin/env bash
# Fails, naming the files, when a C++ file of the project is not formatted as .clang-format
# says with clang-format 14 (Debian 12's). Usage: scripts/check-format.sh [CLANG_FORMAT]
# To format: scripts/check-format.sh --fix
set -euo pipefail
cd "$(dirname "$0")/.."
fix=false
if [ "${1:-}" = "--fix" ]; then fix=true; shift; fi
tool=${1:-$(command -v clang-format-14 || command -v clang-format)}
version=$("$tool" --version)
case "$version" in
    *"version 14."*) ;;
    *) echo "check-format: $tool is not clang-format 14 ($version)" >&2; exit 2 ;;
esac
# The files git knows and the new ones it does not ignore; build trees are ignored.
mapfile -t files < <(git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h' |
                     while read -r f; do [ -f "$f" ] && echo "$f"; done)
if $fix; then
    "$tool" -i "${files[@]}"
    exit 0
fi
bad=()
for f in "${files[@]}"; do
    if ! "$tool" --dry-run --Werror "$f" >/dev/null 2>&1; then bad+=("$f"); fi
done
if [ ${#bad[@]} -gt 0 ]; then
    echo "check-format: ${#bad[@]} of ${#files[@]} files are not formatted (scripts/check-format.sh --fix):" >&2
    printf '  %s\n' "${bad[@]}" >&2
    exit 1
fi
echo "check-format: ${#files[@]} files formatted"
