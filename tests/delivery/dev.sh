#!/usr/bin/env bash
# Claims about ./dev on machines that lack something, played by programs of this script's own. usage: dev.sh CLAIM
# SOURCE is the project's top folder, SCRATCH a folder for the claim's own files.
# shellcheck disable=SC2016  # programs are written with their variables in them
set -euo pipefail

fail() {
    echo "$*" >&2
    exit 1
}

# A copy of ./dev alone, and before all other programs: an ordinary user without any package.
bare_machine() {
    rm -rf "$SCRATCH"
    mkdir -p "$SCRATCH/bin"
    cp "$SOURCE/dev" "$SCRATCH"
    export PATH=$SCRATCH/bin:$PATH
    program dpkg-query 'exit 1'
    program id 'echo 1000'
    program apt-get 'echo "apt-get $*" >>"$SCRATCH/calls"'
    program sudo '[ "$1" != -n ] || shift; exec "$@"'
}

program() {
    printf '#!/usr/bin/env bash\n%s\n' "$2" >"$SCRATCH/bin/$1"
    chmod +x "$SCRATCH/bin/$1"
}

# ./dev demo must fail and say $1.
demo_fails_with() {
    ! "$SCRATCH/dev" demo </dev/null >"$SCRATCH/output" 2>&1 || fail "it went on"
    grep -F "$1" "$SCRATCH/output" || fail "$(cat "$SCRATCH/output")"
}

WithoutSudoItNamesThePackages() {
    bare_machine
    rm "$SCRATCH/bin/sudo"
    local tool
    for tool in bash cat dirname env find grep mkdir; do ln -s "$(command -v $tool)" "$SCRATCH/bin/$tool"; done
    PATH=$SCRATCH/bin demo_fails_with "there is no sudo here. As root: apt-get install cmake"
}

SudoIsPrintedBeforeItIsUsed() {
    bare_machine
    program sudo 'exit 1'
    demo_fails_with "sudo asks for a password, and there is no terminal. As root: apt-get install cmake"
    head -1 "$SCRATCH/output" | grep -F 'dev: sudo apt-get update && sudo apt-get install cmake'
    [ ! -e "$SCRATCH/calls" ] || fail "apt-get was called"
}

OnATerminalItAsks() {
    bare_machine
    echo n | script -qec "'$SCRATCH/dev' demo" /dev/null >"$SCRATCH/output" || true
    grep -F 'run this now? [Y/n]' "$SCRATCH/output"
    grep -F 'nothing was installed' "$SCRATCH/output"
    [ ! -e "$SCRATCH/calls" ] || fail "apt-get was called"
}

ItWaitsForTheListsOfAnotherAptGet() {
    bare_machine
    program apt-get 'echo "$*" >>"$SCRATCH/calls"
        [ "$(wc -l <"$SCRATCH/calls")" -gt 1 ] || { echo "E: Could not get lock /var/lib/apt/lists/lock" >&2; exit 100; }'
    program cmake 'exit 1'
    demo_fails_with "waiting for another apt-get to end"
    grep -c ' update$' "$SCRATCH/calls" | grep -x 2
    grep -- 'DPkg::Lock::Timeout=600 .* install .*cmake' "$SCRATCH/calls"
}

WithoutNetworkItSaysSo() {
    bare_machine
    program apt-get 'case "$*" in *install*) echo "E: Unable to fetch some archives" >&2; exit 100 ;; esac'
    demo_fails_with "Does this machine reach its package mirror?"
}

FolderThatCannotBeWrittenIsNamed() {
    bare_machine
    program mkdir 'exit 1'
    demo_fails_with "cannot write to $SCRATCH/build"
}

export SCRATCH
"$1"
