#!/usr/bin/env bash
# Installs the module, and again from a copy of its sources that was built elsewhere against the installed stand-ins:
# the same file, byte for byte, which the host loads.
set -euo pipefail

cmake=$1 source=$2 build=$3 host=$4
options=("${@:5}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
copy="$work/l'été à la mer"
module=lib/webapi/KIVO.Core.NEXNotify.so

fail() {
    echo "$*" >&2
    exit 1
}

"$cmake" --install "$build" --prefix "$work/first" >/dev/null
[[ $(cd "$work/first" && find . -type f) == "./$module" ]] || fail "More was installed than the module, or less."
! grep --text --fixed-strings -e "$source" -e "$build" "$work/first/$module" || fail "It has the path above in it."

"$cmake" --install "$build" --prefix "$copy/platform" --component platform >/dev/null
mkdir "$copy/source"
cp -r "$source"/{CMakeLists.txt,module,notify,category,services,platform} "$copy/source"
rm -r "$copy/source/platform/include"
"$cmake" -S "$copy/source" -B "$copy/build" -G Ninja -DKIVO_PLATFORM="$copy/platform" "${options[@]}" >/dev/null
"$cmake" --build "$copy/build"
[[ ! -e $copy/build/bin ]] || fail "More was built than the module."
"$cmake" --install "$copy/build" --prefix "$copy" >/dev/null
cmp "$work/first/$module" "$copy/$module"
LD_LIBRARY_PATH="$copy/platform/lib" "$host" --module "$copy/$module" list | grep -q KIVO.Core.NEXNotify.MailContent/1/get ||
    fail "The host cannot load what was built against the installed stand-ins."
