#!/bin/sh
# The gallery: its script makes every picture that its page shows, each with something drawn in it.
program=$1
examples=$2
command -v gnuplot > /dev/null || { echo "gnuplot is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$examples/." "$work"
rm -f "$work"/gallery/*.svg
cd "$work/gallery" || exit 1
"$program" -q gallery.kor > log || { cat log; exit 1; }
pictures=$(sed -n 's/.*<img src="\([^"]*\)".*/\1/p' index.html)
[ -n "$pictures" ] || { echo "no pictures on the page"; exit 1; }
for picture in $pictures; do
  grep -q '<svg' "$picture" && grep -q '</svg>' "$picture" || { echo "$picture: no picture"; exit 1; }
  # The first curve has more than its name: lines, marks or boxes.
  awk '/id="gnuplot_plot_1"/ { on = 1 } on && /<(path|use|polygon) / { found = 1 }
       on && /id="gnuplot_plot_2"|id="plot_[2-9]"/ { on = 0 } END { exit !found }' "$picture" ||
    { echo "$picture: blank"; exit 1; }
done
made=$(ls ./*.svg | wc -l)
[ "$made" -eq "$(echo "$pictures" | wc -l)" ] || { echo "$made pictures made, not all are shown"; exit 1; }
