#!/bin/sh
# The Debian package holds the program, the library with its header, the man page and the manual, and what
# it unpacks runs. 77: no cpack or dpkg-deb here.
build=$1
command -v cpack >/dev/null 2>&1 && command -v dpkg-deb >/dev/null 2>&1 || exit 77
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
cpack -G DEB -B "$work" --config "$build/CPackConfig.cmake" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
mkdir "$work/root"
dpkg-deb -x "$work"/korvel_*.deb "$work/root" || exit 1
bad=0
for file in bin/korvel include/korvel.h lib/pkgconfig/korvel.pc lib/cmake/korvel/korvel-config.cmake \
  share/man/man1/korvel.1 share/korvel/KORHELP share/doc/korvel/manual/OLS.html \
  share/doc/korvel/examples/textile.kor; do
  [ -s "$work/root/usr/$file" ] || { echo "missing: $file"; bad=1; }
done
ls "$work"/root/usr/lib/libkorvel.so.* >/dev/null || bad=1
"$work/root/usr/bin/korvel" -q -c 'DISPLAY $PI' | grep -q '3.141593' || { echo "the program does not run"; bad=1; }
grep -q '^.B OLS' "$work/root/usr/share/man/man1/korvel.1" || { echo "the man page lacks OLS"; bad=1; }
exit $bad
