#!/bin/sh
# matrix.sh [--all]
# Builds the library by every compiler at every optimisation, for every machine, and compares what it
# computes with tests/digests.txt: one line a cell. Without --all, the cells that differ most from
# each other and from the presets, whose tests compare the same. What is built stays in build/bits,
# logs beside it.
set -eu
cd "$(dirname "$0")/../.."
build=build/bits
toolchain_of() {
    case $1 in
        x86_64) ;;
        armhf) echo "--toolchain $PWD/cmake/arm-linux-gnueabihf.cmake" ;;
        *) echo "--toolchain $PWD/cmake/$1-linux-gnu.cmake" ;;
    esac
}

# A cell's name holds all of it: MACHINE,COMPILER,-OPTION...
cells() {
    if [ "$1" = --all ]; then
        for compiler in clang gcc; do
            for level in 3 2 1 0; do
                echo "x86_64,$compiler,-O$level,-flto" "x86_64,$compiler,-O$level"
            done
        done
        for machine in armhf s390x aarch64; do
            for level in 3 2 1 0; do
                echo "$machine,gcc,-O$level,-flto" "$machine,gcc,-O$level"
            done
        done
    else
        echo armhf,gcc,-O2 s390x,gcc,-O2 x86_64,gcc,-O3,-flto x86_64,clang,-O3,-flto x86_64,gcc,-O0 \
            x86_64,clang,-O0
    fi
}

# The program of a machine, without the library.
program() {
    machine=$1
    # shellcheck disable=SC2046
    cmake -S tests/bits -B "$build/$machine" -G Ninja $(toolchain_of "$machine") \
        -DCMAKE_CXX_FLAGS=-O1 -DLIBIV_WERROR=ON
    cmake --build "$build/$machine" -j 1 --target bits_program
}

cell() {
    name=$1
    machine=${name%%,*}
    compiler=${name#*,}
    options=$(echo "${compiler#*,}" | tr , ' ')
    compiler=${compiler%%,*}
    set -- -DLIBIV_WERROR=ON
    case $machine,$compiler in
        x86_64,gcc) set -- "$@" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ ;;
        x86_64,clang)
            # lld links clang's -flto.
            set -- "$@" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
                -DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld
            ;;
    esac
    # shellcheck disable=SC2046
    cmake -S tests/bits -B "$build/$name" -G Ninja $(toolchain_of "$machine") "$@" \
        "-DCMAKE_CXX_FLAGS=$options" -DBITS_PROGRAM="$PWD/$build/$machine/libbits_program.a"
    cmake --build "$build/$name" -j 1 --target libiv_digests
    runner=
    case $machine in
        armhf) runner="qemu-arm -L /usr/arm-linux-gnueabihf" ;;
        x86_64) ;;
        *) runner="qemu-$machine -L /usr/$machine-linux-gnu" ;;
    esac
    $runner "$build/$name/libiv_digests" tests/digests.txt
}

# One step in a process of its own, told in a line.
case ${1:-} in
    --program | --cell)
        step=${1#--}
        log=$build/$2.log
        # Not as a condition: there `set -e` would not hold.
        set +e
        (set -e; "$step" "$2") >"$log" 2>&1
        status=$?
        set -e
        title=$(echo "$2" | tr , ' ')
        if [ $status != 0 ]; then
            printf 'FAILED  %s\n%s\n' "$title" "$(grep -E 'FAILED|rror' "$log" || tail -n 5 "$log")"
        elif [ "$step" = cell ]; then
            printf 'ok      %s: %s\n' "$title" "$(grep ': ' "$log" | grep -E 'agree|SKIPPED' |
                sed 's/ digests agree//' | paste -s -d ';')"
        fi
        exit $status
        ;;
esac

mkdir -p $build
chosen=$(cells "${1:-}")
# shellcheck disable=SC2086
printf '%s\n' $chosen | cut -d , -f 1 | sort -u | xargs -P "$(nproc)" -n 1 "$0" --program
# shellcheck disable=SC2086
printf '%s\n' $chosen | xargs -P "$(nproc)" -n 1 "$0" --cell
# shellcheck disable=SC2086
printf 'Digests of %s cells agree with tests/digests.txt.\n' "$(printf '%s\n' $chosen | wc -l)"
