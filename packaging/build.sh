#!/bin/sh
# build.sh DESTINATION ARCHITECTURE...
# Builds the Debian packages of this tree into the folder; those that serve every architecture come with
# the machine's own. Fails if lintian finds an error or a warning.
set -eu
mkdir -p "$1"
destination=$(cd "$1" && pwd)
shift
cd "$(dirname "$0")/.."
version=$(sed -n 's/^#define LIBIV_VERSION_[A-Z]* \([0-9]*\)$/\1/p' src/libiv.h | paste -s -d .)
maintainer=$(git log -1 --format='%an <%ae>')

# The section of NEWS.md on this version, as Debian writes it: lines of less than 80 columns.
changelog() {
    printf 'libiv (%s) unstable; urgency=medium\n\n' "$version"
    awk -v version="$version" '
        function put(word) {
            if (length(line) + 1 + length(word) > 79) {
                print line
                line = "   "
            }
            line = line " " word
        }
        /^## / { here = $2 == version; next }
        !here { next }
        /^- / { if (line) print line; line = "  *"; found = 1 }
        { for (i = ($1 == "-") + 1; i <= NF; i++) put($i) }
        END { if (line) print line; exit !found }' NEWS.md || {
        echo "FAILED: NEWS.md has a section on version $version" >&2
        return 1
    }
    printf '\n -- %s  %s\n' "$maintainer" "$(git log -1 --format=%aD)"
}

rm -f "$destination"/*.deb
for architecture; do
    work=$destination/$architecture
    tree=$work/libiv
    rm -rf "$work"
    mkdir -p "$tree"
    git ls-files -co --exclude-standard -z -- CMakeLists.txt README.md cmake docs examples python \
        samples src tools | xargs -0 cp --parents -t "$tree"
    cp -r packaging/debian "$tree/debian"
    sed -i "s/@MAINTAINER@/$maintainer/" "$tree/debian/control"
    changelog >"$tree/debian/changelog"

    kind=any
    [ "$architecture" != "$(dpkg --print-architecture)" ] || kind=any,all
    echo "Building for $architecture"
    (
        cd "$tree"
        DEB_BUILD_OPTIONS=noautodbgsym dpkg-buildpackage --no-sign --build="$kind" \
            --host-arch "$architecture" >"$work/log" 2>&1
    ) || {
        cat "$work/log"
        echo "FAILED: the packages for $architecture"
        exit 1
    }
    lintian --allow-root --fail-on error,warning --tag-display-limit 0 \
        "$work"/*.changes
    mv "$work"/*.deb "$destination"
done
ls "$destination"/*.deb
