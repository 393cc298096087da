#!/usr/bin/env bash
# Runs the host's program and compares what it prints. For "built", $3 is the program; for "settings" it is built with
# the library from the sources in $2.
set -euo pipefail
way=$1
sources=$2
minimal=$sources/examples/minimal_platform
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# The library alone, told where the platform is; the program then with the compiler.
build_with_settings() {
    cmake -G Ninja -S "$sources" -B "$folder/build" -DCORVANE_FILE_TESTS=OFF -DCORVANE_FILE_EXAMPLES=OFF \
        -DCORVANE_FILE_PLATFORM=Minimal::Platform -DCORVANE_FILE_PLATFORM_DIR="$minimal"
    cmake --build "$folder/build"
    local library=$folder/build/Corvane/Common/libFile
    local platform=$folder/build/platform
    g++ -std=c++17 -I "$minimal" -I "$sources/Corvane/Common/libFile" "$minimal/host/host.cpp" -o "$folder/host" \
        -L "$library" -lCorvaneFile -L "$platform" -lMinimalPlatform -Wl,-rpath,"$library:$platform"
    program=$folder/host
}

case $way in
    settings) build_with_settings ;;
    built) program=$3 ;;
esac
cd "$folder"
"$program" host.chunks | sed -E 's/:[0-9]+\)$/:line)/' | diff "$minimal/host/expected.txt" -
