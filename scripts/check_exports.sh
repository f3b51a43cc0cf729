#!/bin/sh
# Checks that a built library exports exactly the functions its public headers
# declare with VQ_API: nothing missing, nothing internal leaking out.
# Usage: check_exports.sh <libvq_glob.so | vq_glob.dll>
set -eu
lib=$1
here=$(cd "$(dirname "$0")/.." && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Declared names: the identifier before the "(" of every VQ_API declaration,
# leaving out comments and preprocessor lines.
sed -e 's@/\*.*\*/@@g' "$here"/include/vq_glob/*.h |
    awk '/\/\*/{c=1} !c{print} /\*\//{c=0}' | grep -v '^[[:space:]]*#' |
    tr '\n' ' ' | sed -e 's/;/;\n/g' | grep 'VQ_API' |
    sed -e 's/(.*//' -e 's/.*[^A-Za-z0-9_]\([A-Za-z_][A-Za-z0-9_]*\)[[:space:]]*$/\1/' |
    sort -u >"$tmp/declared"

case "$lib" in
*.dll)
    objdump -p "$lib" | awk '/\[Ordinal\/Name Pointer\] Table/{t=1; next} t && /^[[:space:]]*\[/{print $NF} t && /^$/{t=0}' |
        sort -u >"$tmp/exported"
    ;;
*)
    nm -D --defined-only "$lib" | awk '$2 ~ /^[TW]$/ {print $3}' | grep -v '^_' | sort -u >"$tmp/exported" || true
    ;;
esac

missing=$(comm -23 "$tmp/declared" "$tmp/exported")
extra=$(comm -13 "$tmp/declared" "$tmp/exported")
if [ -n "$missing" ] || [ -n "$extra" ]; then
    [ -z "$missing" ] || printf 'declared but not exported from %s:\n%s\n' "$lib" "$missing"
    [ -z "$extra" ] || printf 'exported but not declared in a public header (%s):\n%s\n' "$lib" "$extra"
    exit 1
fi
echo "exports of $lib: $(wc -l <"$tmp/exported") functions, all declared"
