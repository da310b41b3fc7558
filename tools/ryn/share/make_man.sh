#!/usr/bin/env bash
# Writes the ryn(1) manual page from the tool's own help texts, so that the page and --help never
# disagree.
#
#   make_man.sh <ryn executable> <output file>
set -euo pipefail
ryn=$1
out=$2

# Help text as roff: backslashes and leading dots or quotes escaped, each line kept as it is.
roff() {
    sed -e 's/\\/\\e/g' -e "s/^\\([.']\\)/\\\\\\&\\1/" -e 's/^-/\\-/'
}
section() {
    printf '.SH %s\n.nf\n' "$1"
    "$ryn" "${@:2}" --help | roff
    printf '.fi\n'
}

version=$("$ryn" --version | awk '{print $2}')
{
    printf '.TH RYN 1 "" "ryn %s" "User Commands"\n' "$version"
    printf '.SH NAME\nryn \\- the ORAX drives'"'"' command language, offline and on a bus\n'
    printf '.SH SYNOPSIS\n.B ryn\n\\fIcommand\\fR [\\fIoptions\\fR] [\\fIarguments\\fR]\n'
    section "DESCRIPTION"
    for command in $("$ryn" --help | awk '/^Subcommands:/ {s=1; next} s && !NF {exit} s {print $1}'); do
        section "ryn $command" "$command"
        if [ "$command" = dict ]; then
            for sub in $("$ryn" dict --help | awk '/^Subcommands:/ {s=1; next} s && !NF {exit} s {print $1}'); do
                section "ryn dict $sub" dict "$sub"
            done
        fi
    done
    printf '.SH SEE ALSO\nThe command language and the tool are described in docs/command-language.md\n'
    printf 'and docs/cli.md of the ryn sources.\n'
} >"$out"
