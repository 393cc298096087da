#!/usr/bin/env bash
# What a user gets with the library's file and headers. One claim a run:
#   library.sh CLAIM
# LIBRARY is the file, SOURCE the project's top folder, CXX the compiler, SCRATCH a folder for its own files.
set -euo pipefail

sources=$SOURCE/Corvane/Common/libFile
include_paths=(-I "$SOURCE/platform" -I "$sources")

fail() {
    echo "$*" >&2
    exit 1
}

# packaging.sh renews the list.
ExportedNames() {
    nm -DC --defined-only "$LIBRARY" |
        sed -E 's/^[0-9a-f]+ //; s/std::(__cxx11::)?basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g;
                s/std::set<std::string, std::less<std::string >, std::allocator<std::string > >/std::set<std::string>/g;
                s/\[abi:cxx11\]//' | LC_ALL=C sort
}

ExportsAreTheListedNames() {
    ExportedNames | diff -u "$SOURCE/tests/delivery/exports.txt" - || fail "exported names differ from the list"
}

SonameIsItsOwnNumber() {
    readelf -d "$LIBRARY" | grep -F 'Library soname: [libCorvaneFile.so.1]'
}

EveryNameItUsesIsFoundInWhatItNeeds() {
    local missing
    missing=$(ldd -r "$LIBRARY" | grep -E 'not found|undefined symbol' || true)
    [ -z "$missing" ] || fail "$missing"
}

ConstantsAreEachSourcesOwn() {
    local name copies count=0
    while read -r name; do
        copies=$(nm -C "$LIBRARY" | grep -cE " [bd] Corvane::File::$name(\[abi:cxx11\])?\$" || true)
        [ "$copies" -eq 2 ] || fail "$name: $copies copies instead of one for each class of chunk files"
        count=$((count + 1))
    done < <(sed -nE 's/^const std::string (Xattr\w+) .*/\1/p' "$sources/Corvane/File/XattrNames.h")
    [ "$count" -eq 10 ] || fail "$count constants found instead of 10"
}

NoFolderOfTheBuildIsNamed() {
    local found
    found=$(strings -a "$LIBRARY" | grep -F "$SOURCE" || true)
    [ -z "$found" ] || fail "$found"
    strings -a "$LIBRARY" | grep -Fx 'Corvane/Common/libFile/Corvane/File/DataChunkFileAppender.cpp'
}

EachHeaderCompilesAlone() {
    local folder header standard count=0
    for folder in "$SOURCE/platform" "$sources"; do
        while read -r header; do
            for standard in c++17 c++20; do
                echo "#include <$header>" |
                    "$CXX" -std=$standard -Wall -Wextra -Wpedantic -Werror "${include_paths[@]}" -fsyntax-only -x c++ - ||
                    fail "$header is no $standard"
                count=$((count + 1))
            done
        done < <(public_headers "$folder")
    done
    [ "$count" -eq 22 ] || fail "$count headers and standards tried instead of 22"
}

# The headers of a folder, without those that are the library's own affair.
public_headers() {
    (cd "$1" && grep -rL --include='*.h' '^// Internal to the library' .) | sed 's,^\./,,'
}

AttributesClassCannotBeInstantiated() {
    local standard made
    for standard in c++17 c++20; do
        for made in 'sizeof(Corvane::File::ExtendedAttributes)' 'Corvane::File::ExtendedAttributes{}'; do
            if printf '#include <Corvane/File/ExtendedAttributes.h>\nauto made = %s;' "$made" |
                "$CXX" -std=$standard "${include_paths[@]}" -fsyntax-only -x c++ - 2>/dev/null; then
                echo "$standard: $made"
            fi
        done
    done | diff - <(printf '%s: sizeof(Corvane::File::ExtendedAttributes)\n' c++17 c++20)
}

PlainCompilerCallBuildsIt() {
    "$CXX" -std=c++20 -Wall -Wextra -O2 -fPIC -shared "${include_paths[@]}" "$sources"/Corvane/File/*.cpp \
        -o "$SCRATCH/plain.so"
}

# CMAKE_ARGUMENTS: how the library was configured.
AnotherFolderMakesTheSameFile() {
    local copy=$SCRATCH/elsewhere/and/deeper log=$SCRATCH/log
    rm -rf "$SCRATCH/elsewhere"
    mkdir -p "$copy"
    tar -C "$SOURCE" --exclude=./build --exclude=./.git -c . | tar -C "$copy" -x
    eval "cmake -S '$copy' -B '$copy/out' -G Ninja $CMAKE_ARGUMENTS" >"$log" || fail "$(cat "$log")"
    cmake --build "$copy/out" -j 2 --target CorvaneFile >"$log" || fail "$(cat "$log")"
    cmp "$LIBRARY" "$copy/out/Corvane/Common/libFile/libCorvaneFile.so"
    rm -rf "$SCRATCH/elsewhere"
}

mkdir -p "$SCRATCH"
"$1"
