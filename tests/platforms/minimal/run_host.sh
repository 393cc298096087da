#!/usr/bin/env bash
# Builds the host's program in the way $1 from the sources in $2, runs it, and compares what it prints.
# For "built", $3 is the program.
set -euo pipefail
way=$1
sources=$2
minimal=$sources/tests/platforms/minimal
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# As part of the host's own project, which defines the platform's target.
build_as_subdirectory() {
    cmake -G Ninja -S "$minimal/host" -B "$folder/build" -DCORVANE_FILE="$sources"
    cmake --build "$folder/build"
    program=$folder/build/host
}

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

# Everything with the compiler.
build_with_compiler() {
    cd "$sources"
    g++ -std=c++20 -I "$minimal" -I Corvane/Common/libFile Corvane/Common/libFile/Corvane/File/*.cpp \
        "$minimal/MinimalPlatform.cpp" "$minimal/host/host.cpp" -o "$folder/host"
    program=$folder/host
}

case $way in
    subdirectory) build_as_subdirectory ;;
    settings) build_with_settings ;;
    compiler) build_with_compiler ;;
    built) program=$3 ;;
esac
cd "$folder"
"$program" host.chunks | sed -E 's/:[0-9]+\)$/:line)/' | diff "$minimal/host/expected.txt" -
