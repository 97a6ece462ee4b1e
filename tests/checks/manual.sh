#!/bin/sh
# manual.sh PAGE [EMULATOR...] IVTRACK
# The manual page has no mistakes, and lists the options that the program's help lists, command by
# command.
set -u
page=$1
shift
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
status=0

groff -mdoc -Tutf8 -ww -z "$page" 2>"$work/mistakes" || status=1
if [ -s "$work/mistakes" ]; then
    cat "$work/mistakes"
    status=1
fi

# The options of the program itself stand in front of the first command.
for command in '' track simulate draw; do
    # shellcheck disable=SC2086
    "$@" $command --help | grep -oE '^ +(-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort >"$work/help"
    awk -v command="$command" '/^\.S[hs]/ { here = $1 == ".Ss" ? $2 : "" } here == command && /^\.It Fl/' "$page" |
        grep -oE 'Fl -[a-z-]+' | sed 's/Fl /-/' | sort >"$work/page"
    echo "ivtrack $command: $(wc -l <"$work/help") options"
    [ -s "$work/help" ] && diff "$work/help" "$work/page" || {
        echo "FAILED: page (>) and help (<) of \"ivtrack $command\" list the same options"
        status=1
    }
done
exit $status
