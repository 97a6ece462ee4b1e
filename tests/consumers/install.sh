#!/bin/sh
# install.sh BUILD_DIR DESTINATION CMAKE
# Installs a build and moves it to where it is used: nothing in it may know where it was put first.
set -eu
build=$1 destination=$2 cmake=$3
rm -rf "$destination" "$destination.first"
"$cmake" --install "$build" --prefix "$destination.first" >/dev/null
mv "$destination.first" "$destination"
cd "$destination"
for file in include/libiv.h include/_libiv.h include/libiv.hpp bin/ivtrack share/man/man1/ivtrack.1; do
    [ -s $file ] || {
        echo "FAILED: $file is installed"
        exit 1
    }
done
for name in libiv.so libiv.a libiv.pc libivConfig.cmake libivConfigVersion.cmake; do
    [ -n "$(find . -name $name)" ] || {
        echo "FAILED: $name is installed"
        exit 1
    }
done
if grep -rlF "$destination.first" .; then
    echo "FAILED: these files name no place"
    exit 1
fi
