#!/usr/bin/env bash
# Runs the host's program and compares its output.
#   run_host.sh built SOURCES PROGRAM   runs this program
#   run_host.sh settings SOURCES        builds library and program first
set -euo pipefail
way=$1
sources=$2
minimal=$sources/examples/minimal_platform
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Builds the library with CMake settings that name the platform, then the program with the compiler alone.
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
