#!/usr/bin/env bash
# The README shows the smallest program as it is, and every page and picture that a page links to is there.
# Usage: readme_test.sh TREE
set -euo pipefail
cd "$1"
shown=$(awk '/^```cpp$/ {inside = 1; next} /^```$/ {inside = 0} inside' README.md)
[ "$shown" = "$(cat examples/first_frames.cpp)" ] || {
    diff <(echo "$shown") examples/first_frames.cpp || true
    echo "README.md does not show examples/first_frames.cpp as it is"
    exit 1
}
missing=0
for page in README.md CHANGELOG.md docs/*.md docs/adr/*.md; do
    while read -r link; do
        case $link in http*://* | '#'* | '') continue ;; esac
        [ -e "$(dirname "$page")/${link%%#*}" ] || { echo "$page links to $link, which is not there"; missing=1; }
    done < <(grep -oE '\]\([^) ]+\)' "$page" | sed 's/^](//; s/)$//')
done
exit $missing
