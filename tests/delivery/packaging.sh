#!/usr/bin/env bash
# Claims about what is installed, packaged and delivered, tried as a stranger would. usage: packaging.sh CLAIM
# From the environment: SOURCE and BUILD (the project's folders), VERSION, CXX. Ends with 77 for a skip.
set -euo pipefail

work=$BUILD/tests/delivery/work
moved=$work/moved
packages=$work/package/packages
library=$BUILD/Corvane/Common/libFile/libCorvaneFile.so
outside=$SOURCE/tests/delivery/outside
unset LD_LIBRARY_PATH

fail() {
    echo "$*" >&2
    exit 1
}

skip() {
    echo "SKIPPED: $*" >&2
    exit 77
}

# An empty folder of the claim's own.
scratch() {
    rm -rf "${work:?}/$1"
    mkdir -p "$work/$1"
    echo "$work/$1"
}

configure() {
    cmake -G Ninja -DCMAKE_CXX_COMPILER="$CXX" "$@" >/dev/null
}

files_below() {
    (cd "$1" && find . -type f -o -type l) | sed -e 's|^\./||' -e "s/$VERSION/VERSION/" | LC_ALL=C sort
}

# --- An installed copy, in a prefix that has been moved -------------------------------------------------------------

MakeInstalledCopy() {
    rm -rf "$work/prefix" "$moved"
    cmake --install "$BUILD" --prefix "$work/prefix" >/dev/null
    mv "$work/prefix" "$moved"
}

InstalledFilesAreThoseOfTheList() {
    diff "$SOURCE/tests/delivery/installed_files.txt" <(files_below "$moved")
}

RuntimeComponentIsTheSharedLibrariesAlone() {
    local folder
    folder=$(scratch runtime)
    cmake --install "$BUILD" --prefix "$folder" --component Runtime >/dev/null
    diff <(grep '\.so\.' "$SOURCE/tests/delivery/installed_files.txt") <(files_below "$folder")
}

InstalledCopyNamesNoFolderOfItsBuild() {
    ! grep -rlF -e "$SOURCE" -e "$work/prefix" "$moved"
}

FindPackageGivesAProgramThatRuns() {
    local folder
    folder=$(scratch find_package)
    configure -S "$outside" -B "$folder" -DCMAKE_PREFIX_PATH="$moved"
    cmake --build "$folder" >/dev/null
    "$folder/attributes_only" "$folder"
    "$folder/outside" "$folder/file.chunks"
}

PkgConfigGivesAProgramThatRuns() {
    local folder
    folder=$(scratch pkg_config)
    export PKG_CONFIG_PATH=$moved/lib/pkgconfig
    [ "$(pkg-config --modversion corvane-file)" = "$VERSION" ]
    local flags
    # pkg-config quotes for a shell.
    eval "flags=($(pkg-config --cflags --libs corvane-file) -Wl,-rpath,$(pkg-config --variable=libdir corvane-file))"
    "$CXX" -std=c++17 "$outside/main.cpp" -o "$folder/outside" "${flags[@]}"
    "$folder/outside" "$folder/file.chunks"
}

AnotherMajorVersionIsRefused() {
    local folder
    folder=$(scratch versions)
    configure -S "$outside" -B "$folder/same" -DCMAKE_PREFIX_PATH="$moved" -DCORVANE_VERSION="${VERSION%.*}"
    for other in 0 $((${VERSION%%.*} + 1)); do
        ! configure -S "$outside" -B "$folder/$other" -DCMAKE_PREFIX_PATH="$moved" -DCORVANE_VERSION="$other" \
            2>"$folder/errors" || fail "version $other was accepted"
        grep -q "compatible with requested version \"$other\"" "$folder/errors"
    done
}

# --- What building needs --------------------------------------------------------------------------------------------

ReleasePresetBuildsNoTests() {
    local folder
    folder=$(scratch release)
    (cd "$SOURCE" && cmake --preset release -B "$folder" -DCMAKE_CXX_COMPILER="$CXX" >/dev/null)
    ! ninja -C "$folder" -t targets all | grep -E '^([^ /][^ ]*)?(tests?|fuzz|bench)/' || fail "these would be built too"
}

# Configuring with "$@" must fail with the sentence $1.
configuring_stops_with() {
    local sentence=$1 folder
    shift
    folder=$(scratch "refused_${FUNCNAME[1]}")
    ! cmake -G Ninja -S "$SOURCE" -B "$folder" "$@" >"$folder/output" 2>&1 || fail "it was configured"
    tr -s '\n ' '  ' <"$folder/output" | grep -F "$sentence" || fail "$(cat "$folder/output")"
}

MissingPackagesAreNamed() {
    local no_xxhash=(-DCMAKE_FIND_ROOT_PATH=/nowhere -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY)
    configuring_stops_with "xxHash is missing. On Debian: apt-get install libxxhash-dev" "${no_xxhash[@]}"
    configuring_stops_with "CLI11 is missing. On Debian: apt-get install libcli11-dev" \
        -DCORVANE_FILE_TOOLS=ON -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON
    configuring_stops_with "simdjson is missing. On Debian: apt-get install libsimdjson-dev" \
        -DCORVANE_FILE_TOOLS=ON -DCMAKE_DISABLE_FIND_PACKAGE_simdjson=ON
    configuring_stops_with "GoogleTest is missing. On Debian: apt-get install libgtest-dev" \
        -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
    PKG_CONFIG_LIBDIR=/nowhere configuring_stops_with "fuse 3 is missing. On Debian: apt-get install libfuse3-dev"
}

OlderCompilerIsRefused() {
    local compiler
    compiler=$(scratch old_compiler)/g++
    printf '#!/bin/sh\nexec g++ -U__GNUC__ -D__GNUC__=11 "$@"\n' >"$compiler"
    chmod +x "$compiler"
    configuring_stops_with "needs GCC 12, Clang 15 or newer. This is GCC 11" -DCMAKE_CXX_COMPILER="$compiler"
}

StaticLibraryIsRefused() {
    configuring_stops_with "BUILD_SHARED_LIBS=OFF is not supported" -DBUILD_SHARED_LIBS=OFF
}

# --- As a part of another project -----------------------------------------------------------------------------------

parent_runs_and_is_left_alone() {
    local folder
    folder=$(scratch "parent_$1")
    configure -S "$SOURCE/tests/delivery/parent" -B "$folder" -DCORVANE_SOURCE="$SOURCE" -DFETCH="$1" \
        -DCMAKE_INSTALL_PREFIX="$folder/prefix"
    cmake --build "$folder" >/dev/null
    "$folder/outside" "$folder/file.chunks"
    grep -A2 '"directory"' "$folder/compile_commands.json" | grep 'outside/main.cpp' >"$folder/command"
    ! grep -E -- ' -[WfDOg]' "$folder/command" || fail "flags reach the parent's sources"
    ctest --test-dir "$folder" -N | grep '^Total Tests: 0$' || fail "tests reach the parent"
    cmake --install "$folder" >/dev/null
    [ ! -e "$folder/prefix" ] || fail "install rules reach the parent"
    [ ! -e "$folder/CPackConfig.cmake" ] || fail "packages reach the parent"
}

SubdirectoryRunsAndLeavesItsParentAlone() {
    parent_runs_and_is_left_alone OFF
}

SubdirectoryIsInstalledOnRequest() {
    local folder
    folder=$(scratch installing_parent)
    configure -S "$SOURCE/tests/delivery/parent" -B "$folder/build" -DCORVANE_SOURCE="$SOURCE" -DFETCH=OFF \
        -DCORVANE_FILE_INSTALL=ON -DINSTALL_OUTSIDE=ON
    cmake --build "$folder/build" >/dev/null
    cmake --install "$folder/build" --prefix "$folder/prefix" >/dev/null
    rm -rf "$folder/build"
    "$folder/prefix/bin/outside" "$folder/file.chunks"
    configure -S "$outside" -B "$folder/user" -DCMAKE_PREFIX_PATH="$folder/prefix"
}

FetchContentRunsAndLeavesItsParentAlone() {
    parent_runs_and_is_left_alone ON
}

PlatformThatIsNotExportedCanBeConfigured() {
    local folder
    folder=$(scratch host)
    mkdir "$folder/platform"
    echo 'add_library(host_platform INTERFACE)' >"$folder/platform/CMakeLists.txt"
    configure -S "$SOURCE" -B "$folder/build" -DCORVANE_FILE_TESTS=OFF -DCORVANE_FILE_EXAMPLES=OFF \
        -DCORVANE_FILE_PLATFORM=host_platform -DCORVANE_FILE_PLATFORM_DIR="$folder/platform"
}

# --- Debian packages ------------------------------------------------------------------------------------------------

MakePackages() {
    rm -rf "$work/package"
    cd "$SOURCE"
    cmake --preset package -B "$work/package" -DCMAKE_CXX_COMPILER="$CXX" >/dev/null
    cmake --build "$work/package" >/dev/null
    (cd "$work/package" && cpack >/dev/null)
}

PackagesPassLintian() {
    command -v lintian >/dev/null || skip "no lintian here"
    lintian --allow-root --fail-on warning "$packages"/*.deb "$packages"/*.ddeb
}

DebugSymbolsAreThoseOfThePackagedFiles() {
    local folder file id
    folder=$(scratch debug_symbols)
    dpkg-deb -x "$packages"/libcorvanefile1_*.deb "$folder"
    dpkg-deb -x "$packages"/libcorvanefile1-dbgsym_*.ddeb "$folder"
    for file in "$folder"/usr/lib/*/libCorvane{File,Platform}.so."$VERSION"; do
        id=$(readelf -n "$file" | sed -n 's/.*Build ID: //p')
        readelf -SW "$folder/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug" | grep -F ' .debug_info '
        ! readelf -SW "$file" | grep -F ' .debug_info ' || fail "$file is not stripped"
    done
}

SymbolsFileNamesEveryExportedName() {
    local names
    names=$(nm -D --defined-only "$library" | wc -l)
    [ "$(dpkg-deb -I "$packages"/libcorvanefile1_*.deb symbols | grep -cE '@CORVANE_FILE_1(\.1)? 1\.0\.0$')" -eq "$names" ]
}

PackagesNameWhatTheyDependOn() {
    dpkg-deb -f "$packages"/libcorvanefile1_*.deb Depends | grep 'libc6 .*libstdc++6 .*libxxhash0'
    [ "$(dpkg-deb -f "$packages"/libcorvanefile-dev_*.deb Depends)" = "libcorvanefile1 (= $VERSION)" ]
    dpkg-deb -f "$packages"/corvane-file-tools_*.deb Depends | grep -E "libc6 .*libcorvanefile1 \\(= $VERSION\\)|libcorvanefile1 \\(= $VERSION\\).*libc6 "
}

is_installed() {
    dpkg-query -W -f '${db:Status-Abbrev}' "$1" 2>/dev/null | grep '^i'
}

apt() {
    DEBIAN_FRONTEND=noninteractive apt-get -qq -y -o DPkg::Lock::Timeout=60 -o Dpkg::Use-Pty=0 "$@" >/dev/null
}

remove_packages() {
    ! is_installed libcorvanefile1 || apt purge corvane-file-tools libcorvanefile-dev libcorvanefile1
}

PackagesInstallServeAndLeaveNothing() {
    [ "$(id -u)" -eq 0 ] || skip "only root installs packages"
    ! is_installed libcorvanefile1 || skip "libcorvanefile1 is installed here already, and is left alone"
    local folder
    folder=$(scratch debian)
    trap remove_packages EXIT
    apt install "$packages"/*.deb
    configure -S "$outside" -B "$folder"
    cmake --build "$folder" >/dev/null
    "$folder/outside" "$folder/file.chunks"
    ldd "$folder/outside" | grep '=> /.*lib/.*/libCorvaneFile.so.1 '
    /usr/bin/chunkfile check "$folder/file.chunks"
    remove_packages
    nothing_is_left
}

nothing_is_left() {
    ! dpkg-query -W 'libcorvanefile*' corvane-file-tools 2>/dev/null || fail "packages are left"
    ! ldconfig -p | grep Corvane || fail "the loader still knows the library"
    for package in "$packages"/*.deb; do
        dpkg-deb --fsys-tarfile "$package" | tar -t | sed 's/^\.//' | grep -iE 'corvane|tarn|chunkfile' |
            while read -r path; do [ ! -e "$path" ] || fail "$path is left"; done
    done
}

# --- The delivered file ---------------------------------------------------------------------------------------------

is_hardened() {
    local dynamic segments
    dynamic=$(readelf -dW "$1")
    segments=$(readelf -lW "$1")
    grep -q 'BIND_NOW' <<<"$dynamic" || fail "$1: symbols are bound lazily"
    grep -q 'GNU_RELRO' <<<"$segments" || fail "$1: relocations stay writable"
    grep -q 'GNU_STACK .* RW ' <<<"$segments" || fail "$1: the stack is executable"
    ! grep 'TEXTREL' <<<"$dynamic" || fail "$1: code is relocated"
    nm -D --undefined-only "$1" | grep '__stack_chk_fail' || fail "$1: no stack protector"
}

DeliveredFileIsHardened() {
    is_hardened "$library"
}

# Stack clash protection leaves no mark but in the debug information, which records how each source was compiled.
EverySourceOfTheDeliveredFileIsProtectedFromStackClashes() {
    local producers
    producers=$(readelf --debug-dump=info "$library" | grep -F 'DW_AT_producer')
    [ "$(wc -l <<<"$producers")" -ge 3 ]
    ! grep -v -e '-fstack-protector-strong .*-fstack-clash-protection' <<<"$producers"
}

# Fortified calls leave a mark only where there is a buffer whose size the compiler knows and a length that it does not.
# The library has none, so what is looked at is the level that its compile commands give glibc.
EverySourceOfTheDeliveredFileIsFortified() {
    local commands
    commands=$(grep -E '"command": .*/libFile/Corvane/File/[A-Za-z]+\.cpp(\\")?"' "$BUILD/compile_commands.json" |
        grep -F CorvaneFile.dir | sed -e 's/^ *"command": "//' -e 's/",$//' -e 's/\\"/"/g' -e 's/ -o [^ ]* -c / -E -dM /')
    [ "$(wc -l <<<"$commands")" -eq 5 ]
    while read -r preprocess; do
        (cd "$BUILD" && eval "$preprocess") | grep -x '#define __USE_FORTIFY_LEVEL 3' || fail "not: $preprocess"
    done <<<"$commands"
}

PackagedFilesAreHardenedAndSearchNoFolderOfTheirOwn() {
    local folder
    folder=$(scratch unpacked)
    dpkg-deb -x "$packages"/libcorvanefile1_*.deb "$folder"
    dpkg-deb -x "$packages"/corvane-file-tools_*.deb "$folder"
    for file in "$folder"/usr/lib/*/libCorvane{File,Platform}.so."$VERSION" "$folder/usr/bin/chunkfile"; do
        is_hardened "$file"
        ! readelf -dW "$file" | grep -E 'RPATH|RUNPATH' || fail "$file searches there"
    done
}

# --- The binary interface -------------------------------------------------------------------------------------------

abi=$SOURCE/tests/delivery/abi
platform=$BUILD/platform/libCorvanePlatform.so

abi_is() {
    abidiff --suppressions "$abi/not_ours.ini" "$1" "$2"
}

BinaryInterfaceIsUnchanged() {
    command -v abidiff >/dev/null || skip "no abidiff here"
    local renew="renew the checked-in ABI on purpose only: cmake --build --preset tests --target renew_abi (CONTRIBUTING.md)"
    abi_is "$abi/libCorvaneFile.abi" "$library" || fail "$renew"
    abi_is "$abi/libCorvanePlatform.abi" "$platform" || fail "$renew"
}

MovedMemberIsNoticed() {
    command -v abidiff >/dev/null || skip "no abidiff here"
    local changed
    changed=$(scratch abi)/changed.abi
    sed "s/layout-offset-in-bits='448'/layout-offset-in-bits='456'/" "$abi/libCorvaneFile.abi" >"$changed"
    ! cmp -s "$changed" "$abi/libCorvaneFile.abi" || fail "no member there: choose another"
    ! abi_is "$changed" "$library" || fail "a moved member passed"
}

RenewAbi() {
    for file in "$library" "$platform"; do
        abidw --suppressions "$abi/not_ours.ini" --exported-interfaces-only --no-corpus-path --no-comp-dir-path \
            --no-show-locs --no-elf-needed --type-id-style hash --out-file "$abi/$(basename "$file" .so).abi" "$file"
    done
    LIBRARY=$library SCRATCH=$(scratch renewed) "$SOURCE/tests/delivery/library.sh" ExportedNames \
        >"$SOURCE/tests/delivery/exports.txt"
}

"$@"
