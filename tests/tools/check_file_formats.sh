#!/bin/sh
# Data files between the program and examples/korvel_files.py, both ways. 77: no Python here.
program=$1
root=$2
command -v python3 >/dev/null || exit 77
folder=$(mktemp -d) || exit 1
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
PYTHONDONTWRITEBYTECODE=1 python3 "$root/tests/tools/check_file_formats.py" "$program" "$root/examples"
