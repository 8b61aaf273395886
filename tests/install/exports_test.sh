#!/usr/bin/env bash
# The shared library exports exactly the reviewed names. Usage: exports_test.sh LIBRARY LIST
# After a wanted change of the public face: exports_test.sh LIBRARY LIST --update, and review the difference.
set -euo pipefail
library=$1 list=$2
actual=$(mktemp)
trap 'rm -f "$actual"' EXIT
# The compiler decides whether an inline constructor has one or two symbols, so each name counts once.
nm -D --defined-only "$library" | awk '{print $NF}' | sed 's/@.*//' | c++filt | LC_ALL=C sort -u >"$actual"
[ -s "$actual" ] || { echo "no symbols in $library" >&2; exit 2; }
if [ "${3:-}" = --update ]; then
    cp "$actual" "$list"
fi
foreign=$(grep -vE '^(oru::|(typeinfo|typeinfo name|vtable|guard variable) for oru::)' "$actual" || true)
[ -z "$foreign" ] || { printf 'names of others are exported:\n%s\n' "$foreign"; exit 1; }
diff -u "$list" "$actual" || { echo "the exported names differ from $list"; exit 1; }
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
case $soname in
    liboru_koruone.so.[0-9]*) ;;
    *) echo "soname is '$soname'"; exit 1 ;;
esac
echo "$(wc -l <"$actual") names, soname $soname"
