#!/usr/bin/env bash
# The shared library exports exactly the reviewed names: those of its interface, and those that only its modules take.
# Each module gives out its entry and holds no second copy of what may be in a process only once.
# Usage: exports_test.sh LIBRARY LIST PRIVATE_LIST MODULE...
# After a wanted change: exports_test.sh --update LIBRARY LIST PRIVATE_LIST, and review the difference.
set -euo pipefail
update=false
if [ "$1" = --update ]; then
    update=true
    shift
fi
library=$1 list=$2 private_list=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The compiler decides whether an inline constructor has one or two symbols, so each name counts once.
names() { awk '{print $NF}' | sed 's/@.*//' | c++filt | LC_ALL=C sort -u; }
nm -D --defined-only "$library" | grep -v ' A ' >"$work/all"
grep -v '@KORU_PRIVATE$' "$work/all" | names >"$work/public"
grep '@KORU_PRIVATE$' "$work/all" | names >"$work/private"
[ -s "$work/public" ] || { echo "no symbols in $library" >&2; exit 2; }
if $update; then
    cp "$work/public" "$list"
    cp "$work/private" "$private_list"
fi
foreign=$(grep -hvE '^(oru::|(typeinfo|typeinfo name|vtable|guard variable) for oru::)' "$work/public" "$work/private" || true)
[ -z "$foreign" ] || { printf 'names of others are exported:\n%s\n' "$foreign"; exit 1; }
diff -u "$list" "$work/public" || { echo "the exported names differ from $list"; exit 1; }
diff -u "$private_list" "$work/private" || { echo "the names for the modules differ from $private_list"; exit 1; }
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
case $soname in
    liboru_koruone.so.[0-9]*) ;;
    *) echo "soname is '$soname'"; exit 1 ;;
esac
for module in "$@"; do
    entries=$(nm -D --defined-only "$module" | awk '{print $NF}')
    grep -qxE 'oru_koruone_module_[a-z]+' <<<"$entries" || { echo "$module gives out: $entries"; exit 1; }
    copies=$(nm -C --defined-only "$module" | grep -E ' oru::(KoruLogger::get_instance|CollaboratorFactory::processDefault|Logger::write)\(' || true)
    [ -z "$copies" ] || { printf '%s holds a second copy of:\n%s\n' "$module" "$copies"; exit 1; }
done
echo "$(wc -l <"$work/public") names, $(wc -l <"$work/private") for $# modules, soname $soname"
