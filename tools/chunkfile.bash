# Completion of chunkfile for bash, made of the parser's tables: chunkfile --bash-completion

_chunkfile() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words=
    [ "$COMP_CWORD" -gt 1 ] || command=
    [ "$word" != = ] || word=  # --format=
    [ "$before" != = ] || before=${COMP_WORDS[COMP_CWORD - 2]}  # --format=j
    [[ " ${COMP_WORDS[*]:0:COMP_CWORD} " != *" -- "* ]] || words=:
    [[ -n $words || $word == -* ]] || case $command:$before in
        info:--format) words='table json csv' ;;
        info:--color) words='auto always never' ;;
        list:--from) words=' ' ;;
        list:--to) words=' ' ;;
        list:--index) words=' ' ;;
        list:--limit) words=' ' ;;
        list:--format) words='table json csv' ;;
        list:--color) words='auto always never' ;;
        cat:--fields) words=' ' ;;
        cat:--from) words=' ' ;;
        cat:--to) words=' ' ;;
        cat:--index) words=' ' ;;
        cat:--limit) words=' ' ;;
        cat:--format) words='ndjson csv raw' ;;
        cat:--color) words='auto always never' ;;
        check:--max-size) words=' ' ;;
        check:--format) words='table json csv' ;;
        check:--color) words='auto always never' ;;
        recover:-o | recover:--output) words=':' ;;
        recover:--max-size) words=' ' ;;
        recover:--split) words=' ' ;;
        recover:--on-equal-time) words='stop skip shift' ;;
        recover:--color) words='auto always never' ;;
        copy:--fields) words=' ' ;;
        copy:--from) words=' ' ;;
        copy:--to) words=' ' ;;
        copy:--index) words=' ' ;;
        copy:-o | copy:--output) words=':' ;;
        copy:--max-size) words=' ' ;;
        copy:--split) words=' ' ;;
        copy:--on-equal-time) words='stop skip shift' ;;
        copy:--color) words='auto always never' ;;
        import:-o | import:--output) words=':' ;;
        import:--max-size) words=' ' ;;
        import:--split) words=' ' ;;
        import:--on-equal-time) words='stop skip shift' ;;
        import:--time) words=' ' ;;
        import:--time-unit) words='s ms us ns' ;;
        import:--rows) words=' ' ;;
        import:--format) words='ndjson json csv' ;;
        import:--color) words='auto always never' ;;
        attr:--color) words='auto always never' ;;
        view:-o | view:--output) words=':' ;;
        view:--color) words='auto always never' ;;
        attr:attr) words='list get set remove' ;;
        *) [ -z "$command" ] || words=: ;;  # files
    esac
    [ -n "$words" ] || case $command in
        info) words='--fields --format --color -q --quiet -v --verbose --help --version' ;;
        list) words='--from --to --index --limit --scan --format --color -q --quiet -v --verbose --help --version' ;;
        cat) words='--fields --from --to --index --limit --scan --strings --format --color -q --quiet -v --verbose --help --version' ;;
        check) words='--max-size --strict --format --color -q --quiet -v --verbose --help --version' ;;
        recover) words='--doubtful -o --output --max-size --split --on-equal-time --dry-run --force --color -q --quiet -v --verbose --help --version' ;;
        copy) words='--fields --from --to --index --sort -o --output --max-size --split --on-equal-time --dry-run --force --color -q --quiet -v --verbose --help --version' ;;
        import) words='-o --output --max-size --split --on-equal-time --dry-run --force --time --time-unit --drop-time --rows --skip-bad --format --color -q --quiet -v --verbose --help --version' ;;
        attr) words='--color -q --quiet -v --verbose --help --version' ;;
        view) words='-o --output --force --color -q --quiet -v --verbose --help --version' ;;
        *) words='info list cat check recover copy import attr view --help --version' ;;
    esac
    if [ "$words" = : ]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    fi
}
complete -o filenames -F _chunkfile chunkfile
