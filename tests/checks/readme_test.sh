#!/usr/bin/env bash
# Pages show example programs as they are, every page and picture that a page links to is there, and the axes are drawn
# as the code has them.
# Usage: readme_test.sh TREE
set -euo pipefail
cd "$1"
shows() {  # PAGE PROGRAM
    local shown
    shown=$(awk '/^```cpp$/ {inside = 1; next} /^```$/ {inside = 0} inside' "$1")
    [ "$shown" = "$(cat "$2")" ] && return
    diff <(echo "$shown") "$2" || true
    echo "$1 does not show $2 as it is"
    exit 1
}
shows README.md examples/first_frames.cpp
shows docs/coming-from-opencv.md examples/opencv_view.cpp
missing=0
for page in README.md CHANGELOG.md docs/*.md docs/adr/*.md; do
    while read -r link; do
        case $link in http*://* | '#'* | '') continue ;; esac
        [ -e "$(dirname "$page")/${link%%#*}" ] || { echo "$page links to $link, which is not there"; missing=1; }
    done < <(grep -oE '\]\([^) ]+\)' "$page" | sed 's/^](//; s/)$//')
done
scripts/draw-axes --check || { echo "docs/images/axes.svg is not what scripts/draw-axes draws"; missing=1; }
exit $missing
