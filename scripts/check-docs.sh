#!/bin/sh
# Looks at the documentation that `make docs` has written: every local link leads somewhere, and every page of the guide
# fits a desktop's and a phone's window, light and dark, with no text cut off or hard to tell from what is behind it.
# The pictures are for people: build/docs/screenshots.
#
#     scripts/check-docs.sh [PAGE...]
set -eu
cd "$(dirname "$0")/.."
scripts/install-packages.sh site
[ -f build/docs/html/index.html ] || make docs
/usr/bin/python3 -B scripts/check-links.py build/docs/html
/usr/bin/python3 -B scripts/look-at-docs.py build/docs/html build/docs/screenshots "$@"
